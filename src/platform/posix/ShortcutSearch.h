#pragma once

#include <cstddef>
#include <string>

#include "platform/FileManager.h"
#include "platform/posix/BeneathResolver.h"
#include "platform/posix/FolderAccess.h"
#include "platform/posix/ShortcutFiles.h"

namespace ravelin::platform {

/// The look for shortcuts beneath a desktop folder: first in the folder itself, then further down,
/// as deep as there may be some, for a label with a slash leads into a folder. No link is followed
/// and no other mount is entered. Any thread.
class ShortcutSearch {
 public:
  /// How far it goes. A desktop can be a whole home folder.
  struct Bounds {
    std::size_t depth = 16;       ///< folders between the desktop and a shortcut
    std::size_t names = 100'000;  ///< of files and folders, in all
  };

  /// Both must outlive this object.
  ShortcutSearch(const FolderAccess& access, const ShortcutFiles& shortcuts, Bounds bounds)
      : _access(access), _shortcuts(shortcuts), _bounds(bounds) {}
  ShortcutSearch(const FolderAccess& access, const ShortcutFiles& shortcuts)
      : ShortcutSearch(access, shortcuts, Bounds()) {}

  [[nodiscard]] ShortcutListing beneath(const std::string& desktop) const;

 private:
  const FolderAccess& _access;
  const ShortcutFiles& _shortcuts;
  Bounds _bounds;
};

}  // namespace ravelin::platform
