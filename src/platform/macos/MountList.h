#pragma once

#include <string>
#include <vector>

#include "platform/Volumes.h"

namespace ravelin::platform {

/// What is mounted, as the kernel lists it at the moment of the call. Never waits for a server. Any
/// thread.
class MountList {
 public:
  /// Where something is mounted, in the kernel's order; none where it does not tell.
  [[nodiscard]] static std::vector<std::string> points();

  /// Whether something is mounted at the path.
  [[nodiscard]] static bool holds(const std::string& point);

  /// The SMB shares, in the kernel's order.
  [[nodiscard]] static std::vector<MountedShare> shares();
};

}  // namespace ravelin::platform
