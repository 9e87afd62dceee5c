#include "controller/MountedDisks.h"

#include <iterator>
#include <utility>

namespace ravelin {

void MountedDisks::append(DiskPtr disk) {
  const auto record =
      _records.insert(_records.end(), {.disk = std::move(disk), .byUuid = {}, .byMacAddress = {}});
  // Among equal keys a multimap puts the new one last.
  if (const Text& uuid = record->disk->uuid()) {
    record->byUuid = _byUuid.emplace(TextKey(*uuid), record);
  }
  if (const Text& macAddress = record->disk->macAddress()) {
    record->byMacAddress = _byMacAddress.emplace(TextKey(*macAddress), record);
  }
  _tally.add(*record->disk);
}

void MountedDisks::_remove(Place record) {
  if (record->disk->uuid()) {
    _byUuid.erase(record->byUuid);
  }
  if (record->disk->macAddress()) {
    _byMacAddress.erase(record->byMacAddress);
  }
  _tally.subtract(*record->disk);
  _records.erase(record);
}

void MountedDisks::remove(const Disk& disk) {
  std::vector<Place> equals;
  if (const Text& uuid = disk.uuid()) {
    const auto [begin, end] = _byUuid.equal_range(TextKey(*uuid));
    for (auto at = begin; at != end; ++at) {
      if (disk.isEqual(*at->second->disk)) {
        equals.push_back(at->second);
      }
    }
  } else {
    for (auto record = _records.begin(); record != _records.end(); ++record) {
      if (disk.isEqual(*record->disk)) {
        equals.push_back(record);
      }
    }
  }
  for (const Place record : equals) {
    _remove(record);
  }
}

DiskPtr MountedDisks::find(const Text& uuid) const {
  if (!uuid) {
    return nullptr;
  }
  const TextKey key(*uuid);
  const auto first = _byUuid.lower_bound(key);
  return first == _byUuid.end() || first->first != key ? nullptr : first->second->disk;
}

std::vector<DiskPtr> MountedDisks::ofDevice(const Text& macAddress) const {
  std::vector<DiskPtr> disks;
  if (macAddress) {
    const auto [begin, end] = _byMacAddress.equal_range(TextKey(*macAddress));
    for (auto at = begin; at != end; ++at) {
      disks.push_back(at->second->disk);
    }
  }
  return disks;
}

std::vector<DiskPtr> MountedDisks::copy() const {
  std::vector<DiskPtr> disks;
  disks.reserve(_records.size());
  for (const Record& record : _records) {
    disks.push_back(record.disk);
  }
  return disks;
}

}  // namespace ravelin
