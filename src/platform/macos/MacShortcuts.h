#pragma once

#include "platform/posix/NativeShortcuts.h"

namespace ravelin::platform {

/// The shortcuts of macOS: script applications, which are folders, or single files. Their mark is
/// an extended attribute. Any thread.
class MacShortcuts final : public NativeShortcuts {
 public:
  /// The attribute that marks a shortcut; its value does not matter.
  static constexpr const char* MARK = "net.ravelin-disk.shortcut";

  /// The access must outlive this object.
  explicit MacShortcuts(const FolderAccess& access) : _access(access) {}

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
};

}  // namespace ravelin::platform
