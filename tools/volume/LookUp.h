#pragma once

#include <optional>

#include "base/Text.h"
#include "common/Failure.h"

namespace ravelin {
class Disk;
}

namespace ravelin::volume {

/// The status where the look-up in the list of mounts finds something else than the share.
inline constexpr int OTHER_SHARE = 3;

/// What the look-up in the list of mounts finds for a share.
struct LookUp {
  Text path;                       ///< where the share is mounted; null where it is not
  std::optional<Failure> failure;  ///< what it finds instead; everything else would work on that
};

/// Looks the disk's share up and compares what is found with it. Any thread; raises LaunchException
/// where there is no list of mounts.
LookUp lookUp(const Disk& disk);

}  // namespace ravelin::volume
