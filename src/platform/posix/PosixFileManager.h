#pragma once

#include "platform/FileManager.h"
#include "platform/posix/BeneathResolver.h"
#include "platform/posix/NativeShortcuts.h"
#include "platform/posix/ShortcutFiles.h"

namespace ravelin::platform {

/// The file manager of a POSIX system, made of what such systems share and what each has of its
/// own: the way down into folders, and what shortcuts need. Any thread.
class PosixFileManager final : public FileManager {
 public:
  /// Both must outlive this object.
  PosixFileManager(const FolderAccess& access, NativeShortcuts& shortcuts)
      : _access(access), _resolver(access), _shortcuts(access, shortcuts) {}

  bool createDirectoryAtPath(const std::string& path) override;
  bool fileExistsAtPath(const std::string& path) override;
  FileContents contentsAtPath(const std::string& path, std::size_t limit) override;
  std::optional<FileError> writeAtomically(const std::string& path,
                                           std::string_view content) override;
  bool itemExistsAtPath(const std::string& path, const Text& beneath) override;
  FileContents contentsOfItemAtPath(const std::string& path, const Text& beneath) override;
  std::optional<FileError> makeWayAtPath(const std::string& path, const Text& beneath) override;
  std::optional<FileError> removeShortcutAtPath(const std::string& path,
                                                const Text& beneath) override;
  ShortcutListing shortcutsBeneath(const std::string& folder) override;
  std::optional<FileError> writeShortcutAtPath(const std::string& path, const Text& beneath,
                                               std::string_view content) override;

 private:
  const FolderAccess& _access;
  const BeneathResolver _resolver;
  ShortcutFiles _shortcuts;
};

}  // namespace ravelin::platform
