#include "controller/MountedDisks.h"

#include <utility>

namespace ravelin {

void MountedDisks::_insert(Index& index, const Text& text, Place place) {
  if (text) {
    index[*text].insert(place);
  }
}

void MountedDisks::_erase(Index& index, const Text& text, Place place) {
  const auto found = text ? index.find(*text) : index.end();
  if (found == index.end()) {
    return;
  }
  found->second.erase(place);
  if (found->second.empty()) {
    index.erase(found);
  }
}

void MountedDisks::append(DiskPtr disk) {
  const Place place = _next++;
  _insert(_byUuid, disk->uuid(), place);
  _insert(_byMacAddress, disk->macAddress(), place);
  _disks.emplace_hint(_disks.end(), place, std::move(disk));
}

void MountedDisks::remove(const Disk& disk) {
  std::vector<Place> places;
  const auto takeEqual = [&](Place place, const Disk& candidate) {
    if (disk.isEqual(candidate)) {
      places.push_back(place);
    }
  };
  if (disk.uuid()) {
    if (const auto found = _byUuid.find(*disk.uuid()); found != _byUuid.end()) {
      for (const Place place : found->second) {
        takeEqual(place, *_disks.at(place));
      }
    }
  } else {
    for (const auto& [place, candidate] : _disks) {
      takeEqual(place, *candidate);
    }
  }
  for (const Place place : places) {
    const auto found = _disks.find(place);
    const DiskPtr removed = std::move(found->second);
    _disks.erase(found);
    _erase(_byUuid, removed->uuid(), place);
    _erase(_byMacAddress, removed->macAddress(), place);
  }
}

DiskPtr MountedDisks::find(const Text& uuid) const {
  const auto found = uuid ? _byUuid.find(*uuid) : _byUuid.end();
  return found == _byUuid.end() ? nullptr : _disks.at(*found->second.begin());
}

std::vector<DiskPtr> MountedDisks::ofDevice(const Text& macAddress) const {
  std::vector<DiskPtr> disks;
  const auto found = macAddress ? _byMacAddress.find(*macAddress) : _byMacAddress.end();
  if (found != _byMacAddress.end()) {
    for (const Place place : found->second) {
      disks.push_back(_disks.at(place));
    }
  }
  return disks;
}

std::vector<DiskPtr> MountedDisks::copy() const {
  std::vector<DiskPtr> disks;
  disks.reserve(_disks.size());
  for (const auto& [place, disk] : _disks) {
    disks.push_back(disk);
  }
  return disks;
}

}  // namespace ravelin
