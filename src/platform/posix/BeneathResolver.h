#pragma once

#include <string>
#include <string_view>

#include "base/Text.h"
#include "platform/posix/FolderAccess.h"

namespace ravelin::platform {

/// Finds the folder that holds the last component of a path beneath another folder. That folder is
/// reached as its path says, links included; from there on every step leads downwards, none follows
/// a link and none enters another mount, also while somebody else is moving things about.
/// Immutable; any thread.
class BeneathResolver {
 public:
  struct Place {
    Descriptor folder;  ///< good for the calls that take a folder, not for reading it
    std::string name;   ///< one component of the folder, neither empty nor "." nor ".."
    int error = 0;      ///< the error number when there is no such place, or 0
  };

  /// The access takes the steps, and must outlive this object.
  explicit BeneathResolver(const FolderAccess& access) : _access(access) {}

  /// The place of the path. The path must begin with the folder beneath which it lies and a slash.
  [[nodiscard]] Place resolve(const std::string& path, const Text& beneath) const;

 private:
  [[nodiscard]] Descriptor _openFolders(Descriptor start, std::string_view path) const;

  const FolderAccess& _access;
};

}  // namespace ravelin::platform
