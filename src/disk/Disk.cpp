#include "disk/Disk.h"

#include "base/KeyedHash.h"
#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/Volumes.h"

namespace ravelin {

namespace {

bool matches(const Text& mine, const Text& theirs) { return !mine || mine == theirs; }

}  // namespace

std::optional<Disk::Date> Disk::lastUpdateTime() const {
  const Date::rep ticks = _lastUpdateTime.load();
  return ticks == NO_DATE ? std::nullopt : std::optional(Date(Date::duration(ticks)));
}

void Disk::setLastUpdateTime(std::optional<Date> lastUpdateTime) {
  _lastUpdateTime.store(lastUpdateTime ? lastUpdateTime->time_since_epoch().count() : NO_DATE);
}

std::array<const Text*, Disk::TEXT_COUNT> Disk::_texts() const {
  return {&_label, &_macAddr, &_ipAddr, &_eventName, &_uuid};
}

void Disk::_digest() const {
  Digest digest;
  Texts bit = 1;
  for (const Text* text : _texts()) {
    if (*text) {
      digest.present |= bit;
      digest.size += static_cast<std::uint32_t>((*text)->size());
    }
    bit <<= 1U;
  }
  if (_uuid) {
    KeyedHash hash;
    hash.add(*_uuid);
    digest.hashOfUuid = hash.take();
  }
  _digestOfTexts = digest;
  _digestOfTexts.hash = _hashOf(digest.present);
  _isDigested = true;
}

std::uint64_t Disk::hashOf(Texts texts) const {
  const Digest& digest = _digested();
  return texts == digest.present ? digest.hash : _hashOf(texts);
}

std::uint64_t Disk::_hashOf(Texts texts) const {
  KeyedHash hash;
  hash.add(std::uint64_t{texts});
  for (const Text* text : _texts()) {
    if ((texts & 1U) != 0) {
      // The uuid has been hashed already.
      text == &_uuid ? hash.add(_digestOfTexts.hashOfUuid) : hash.add(**text);
    }
    texts >>= 1U;
  }
  return hash.take();
}

bool Disk::isEqual(const Disk& other) const {
  return matches(_eventName, other._eventName) && matches(_macAddr, other._macAddr) &&
         matches(_ipAddr, other._ipAddr) && matches(_uuid, other._uuid) &&
         matches(_label, other._label);
}

Text Disk::getVolumePath() {
  if (!_volumePath) {
    const Text path = _getVolumePath();
    if (!path) {
      return std::nullopt;
    }
    _volumePath = std::make_unique<const std::string>(*path);
  }
  return *_volumePath;
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
