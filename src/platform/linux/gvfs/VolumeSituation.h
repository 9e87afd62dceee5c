#pragma once

#include <string>

namespace ravelin::platform {

/// What can happen to a volume that GVfs is asked to mount or to unmount. The helper program ends
/// with these, so they stay clear of the statuses that programs end with for other reasons.
enum class VolumeSituation : int {
  done = 0,
  noServer = 10,
  noSuchShare = 11,
  notPermitted = 12,
  alreadyMounted = 13,
  noGvfs = 14,
  noMountPoint = 15,
  timedOut = 16,
  notMounted = 17,
  inUse = 18,
  failed = 19,
  // Those that the helper does not know.
  noHelper = 20,
  notGuest = 21,
  noReferenceLeft = 22,
};

/// What it means, for people: ASCII, one line. Where the situation leaves the reason open, what has
/// been said about it follows, as far as it fits.
[[nodiscard]] std::string commentOn(VolumeSituation situation, const std::string& saying = "");

}  // namespace ravelin::platform
