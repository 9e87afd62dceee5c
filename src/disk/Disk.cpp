#include "disk/Disk.h"

#include <cstddef>

#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/Volumes.h"

namespace ravelin {

namespace {

std::size_t sizeOf(const Text& text) { return text ? text->size() : 0; }

bool matches(const Text& mine, const Text& theirs) { return !mine || mine == theirs; }

}  // namespace

std::optional<Disk::Date> Disk::lastUpdateTime() const {
  const Date::rep ticks = _lastUpdateTime.load();
  return ticks == NO_DATE ? std::nullopt : std::optional(Date(Date::duration(ticks)));
}

void Disk::setLastUpdateTime(std::optional<Date> lastUpdateTime) {
  _lastUpdateTime.store(lastUpdateTime ? lastUpdateTime->time_since_epoch().count() : NO_DATE);
}

std::size_t Disk::textSize() const {
  return sizeOf(_eventName) + sizeOf(_macAddr) + sizeOf(_ipAddr) + sizeOf(_uuid) + sizeOf(_label);
}

bool Disk::isEqual(const Disk& other) const {
  return matches(_eventName, other._eventName) && matches(_macAddr, other._macAddr) &&
         matches(_ipAddr, other._ipAddr) && matches(_uuid, other._uuid) &&
         matches(_label, other._label);
}

Text Disk::getVolumePath() {
  if (!_volumePath) {
    _volumePath = _getVolumePath();
  }
  return _volumePath;
}

bool Disk::doesVolumeExist() const {
  const Text path = _getVolumePath();
  return path && !path->empty();
}

Text Disk::_getVolumePath() const {
  auto& volumes = platform::service<platform::Volumes>();
  const Text path = _volumeReference == 0 ? std::nullopt : volumes.pathOfVolume(_volumeReference);
  Text match;
  if (path) {
    for (const platform::Volume& volume : volumes.volumes()) {
      // A nameless volume is in no path.
      if (!volume.name.empty() && path->find(volume.name) != std::string::npos) {
        match = volume.rootPath;
      }
    }
  }
  return match ? match : DiskManager::getMountedDiskMountDirectory(*this);
}

}  // namespace ravelin
