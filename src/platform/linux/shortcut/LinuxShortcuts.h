#pragma once

#include "platform/linux/shortcut/Trash.h"
#include "platform/posix/NativeShortcuts.h"

namespace ravelin::platform {

/// Linux's shortcuts: the regular files with the first line of one. Any thread.
class LinuxShortcuts final : public NativeShortcuts {
 public:
  /// The access must outlive this object.
  explicit LinuxShortcuts(const FolderAccess& access) : _access(access), _trash(access) {}

  [[nodiscard]] bool isShortcut(int folder, const std::string& name,
                                FoundItem& item) const override;
  [[nodiscard]] int mark(int folder, const std::string& name) const override;
  [[nodiscard]] int renameIfFree(int folder, const std::string& from,
                                 const std::string& to) const override;
  [[nodiscard]] int exchange(int folder, const std::string& one,
                             const std::string& other) const override;
  [[nodiscard]] int remove(int folder, const std::string& name) const override;
  [[nodiscard]] std::optional<FileError> moveToTrash(const BeneathResolver::Place& place,
                                                     const FoundItem& item) override;

 private:
  const FolderAccess& _access;
  Trash _trash;
};

}  // namespace ravelin::platform
