#include "platform/posix/VolumeReferences.h"

#include <limits>

namespace ravelin::platform {

std::int16_t VolumeReferences::give(const std::string& path, const IsMounted& isMounted) {
  const LockGuard lock(_mutex);
  // What was mounted at this path before is not mounted any more.
  if (const auto earlier = _numbers.find(path); earlier != _numbers.end()) {
    _paths.erase(earlier->second);
    _numbers.erase(earlier);
  }
  return _giveNext(path, isMounted);
}

std::int16_t VolumeReferences::numberOf(const std::string& path, const IsMounted& isMounted) {
  const LockGuard lock(_mutex);
  const auto known = _numbers.find(path);
  return known == _numbers.end() ? _giveNext(path, isMounted) : known->second;
}

std::int16_t VolumeReferences::_giveNext(const std::string& path, const IsMounted& isMounted) {
  constexpr std::int16_t LAST = std::numeric_limits<std::int16_t>::max();
  for (std::int16_t tries = 0; tries < LAST; ++tries) {
    _last = static_cast<std::int16_t>(_last % LAST + 1);
    const auto known = _paths.find(_last);
    if (known != _paths.end() && isMounted(known->second)) {
      continue;
    }
    if (known != _paths.end()) {
      _numbers.erase(known->second);
    }
    _paths[_last] = path;
    _numbers[path] = _last;
    return _last;
  }
  return 0;
}

Text VolumeReferences::pathOf(std::int16_t reference) const {
  const LockGuard lock(_mutex);
  const auto known = _paths.find(reference);
  return known == _paths.end() ? std::nullopt : Text(known->second);
}

}  // namespace ravelin::platform
