#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

/// Something that was looked for in a folder.
struct FoundItem {
  /// Why it cannot be looked at, or 0: ENOENT where there is nothing, EXDEV where something else is
  /// mounted.
  int error = 0;
  /// Its own status, also where it is a link; all zero where it does not tell.
  struct stat status{};
  /// The item itself, good for asking what it is, on a system that can hold on to an item without
  /// opening it for reading; otherwise none.
  Descriptor descriptor;
  /// The item opened for reading, where somebody has needed that.
  Descriptor content;
};

/// How a system goes down from folder to folder, one name at a time: no link is followed, and no
/// other mount is entered. A name is one component, neither empty nor "." nor "..". Immutable; any
/// thread.
class FolderAccess {
 public:
  virtual ~FolderAccess() = default;

  /// Opens the folder at the path, which is reached as its path says, links included. The
  /// descriptor is good for the calls that take a folder, not for reading it. None, with the reason
  /// in errno, where there is no such folder.
  [[nodiscard]] virtual Descriptor openFolder(const std::string& path) const = 0;

  /// Opens the folder that has this name in the folder, likewise. None, with the reason in errno,
  /// where that is no folder or something is mounted there (EXDEV).
  [[nodiscard]] virtual Descriptor enter(int folder, const std::string& name) const = 0;

  /// Looks for what has this name in the folder; a link is not followed. Nothing is opened that
  /// would have effects of its own.
  [[nodiscard]] virtual FoundItem find(int folder, const std::string& name) const = 0;

  /// Opens for reading the file or folder that was found under this name, and nothing else, also
  /// where another one has come in its place. None, with the reason in errno, where that fails.
  [[nodiscard]] virtual Descriptor openFound(int folder, const std::string& name,
                                             const FoundItem& item) const = 0;
};

}  // namespace ravelin::platform
