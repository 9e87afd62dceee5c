#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "base/Text.h"
#include "base/ThreadSafety.h"

namespace ravelin::platform {

/// The numbers by which this process refers to the volumes that it has mounted: from 1 to 32767,
/// over and over, but never one whose volume is still mounted. Any thread.
class VolumeReferences {
 public:
  using IsMounted = std::function<bool(const std::string& path)>;

  /// A number for what has just been mounted at the path; 0 when there is none left. The function
  /// tells what is still mounted of the volumes that have numbers.
  [[nodiscard]] std::int16_t give(const std::string& path, const IsMounted& isMounted);

  /// The number of what is mounted at the path, which gets one if it has none; 0 when there is none
  /// left.
  [[nodiscard]] std::int16_t numberOf(const std::string& path, const IsMounted& isMounted);

  /// Where the volume with this number was mounted; null for a number that has not been given.
  [[nodiscard]] Text pathOf(std::int16_t reference) const;

 private:
  std::int16_t _giveNext(const std::string& path, const IsMounted& isMounted) REQUIRES(_mutex);

  mutable Mutex _mutex;
  std::map<std::int16_t, std::string> _paths GUARDED_BY(_mutex);
  std::map<std::string, std::int16_t> _numbers GUARDED_BY(_mutex);
  std::int16_t _last GUARDED_BY(_mutex) = 0;
};

}  // namespace ravelin::platform
