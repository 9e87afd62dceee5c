#pragma once

#include <string>
#include <string_view>

#include "base/Text.h"
#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

/// Finds the folder that holds the last component of a path beneath another folder. That folder is
/// reached as its path says, links included; from there on every step leads downwards, none follows
/// a link and none enters another mount, also while somebody else is moving things about. What is
/// mounted beneath the folder is not even asked anything, so that it may hang. Immutable; any
/// thread.
class BeneathResolver {
 public:
  enum class Strategy {
    kernel,   ///< the system keeps every step within bounds; where it has no such call, as below
    stepwise  ///< every step is looked at when it has been taken
  };

  struct Place {
    Descriptor folder;  ///< good for the calls that take a folder, not for reading it
    std::string name;   ///< one component of the folder, neither empty nor "." nor ".."
    int error = 0;      ///< the error number when there is no such place, or 0
  };

  explicit BeneathResolver(Strategy strategy = Strategy::kernel) : _strategy(strategy) {}

  /// The place of the path. The path must begin with the folder beneath which it lies and a slash.
  [[nodiscard]] Place resolve(const std::string& path, const Text& beneath) const;

  /// What has this name in the folder, good for asking what it is; a link is meant itself. None,
  /// with the reason in errno, where there is nothing or something is mounted there (EXDEV).
  [[nodiscard]] Descriptor open(int folder, const std::string& name) const;

 private:
  [[nodiscard]] Descriptor _openFolders(Descriptor start, std::string_view path) const;

  Strategy _strategy;
};

}  // namespace ravelin::platform
