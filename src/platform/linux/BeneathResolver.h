#pragma once

#include <string>

#include "platform/Text.h"
#include "platform/linux/Descriptor.h"

namespace ravelin::platform {

/// Finds the folder that holds the last component of a path beneath another folder. That folder is
/// reached as its path says, links included; from there on every step leads downwards and none
/// follows a link, also while somebody else is moving things about. Immutable; any thread.
class BeneathResolver {
 public:
  enum class Strategy {
    kernel,   ///< the system walks in one call; where it has no such call, as below
    stepwise  ///< one call per component
  };

  struct Place {
    Descriptor folder;  ///< good for the calls that take a folder, not for reading it
    std::string name;   ///< one component of the folder, neither empty nor "." nor ".."
    int error = 0;      ///< the error number when there is no such place, or 0
  };

  explicit BeneathResolver(Strategy strategy = Strategy::kernel) : _strategy(strategy) {}

  /// The place of the path. The path must begin with the folder beneath which it lies and a slash.
  [[nodiscard]] Place resolve(const std::string& path, const Text& beneath) const;

 private:
  Strategy _strategy;
};

}  // namespace ravelin::platform
