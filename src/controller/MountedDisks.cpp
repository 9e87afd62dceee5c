#include "controller/MountedDisks.h"

#include <iterator>
#include <utility>

namespace ravelin {

void MountedDisks::append(DiskPtr disk) {
  const auto record = _records.insert(
      _records.end(),
      {.disk = std::move(disk), .number = _numberOfNext++, .place = {}, .byMacAddress = {}});
  record->place = record;
  if (record->disk->uuid()) {
    _byUuid.insert(record->disk->hashOfUuid(), *record);
  }
  // Among equal keys a multimap puts the new one last.
  if (const Text& macAddress = record->disk->macAddress()) {
    record->byMacAddress = _byMacAddress.emplace(TextKey(*macAddress), record);
  }
  _tally.add(*record->disk);
}

void MountedDisks::_remove(Place record) {
  if (record->disk->uuid()) {
    _byUuid.erase(record->disk->hashOfUuid(), *record);
  }
  if (record->disk->macAddress()) {
    _byMacAddress.erase(record->byMacAddress);
  }
  _tally.subtract(*record->disk);
  _records.erase(record);
}

void MountedDisks::remove(const Disk& disk) {
  std::vector<Place> equals;
  if (disk.uuid()) {
    _byUuid.forEach(disk.hashOfUuid(), [&](const Record& record) {
      if (disk.isEqual(*record.disk)) {
        equals.push_back(record.place);
      }
    });
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

const DiskPtr& MountedDisks::find(const Disk& event) const {
  static const DiskPtr none;
  const Record* first = nullptr;
  if (event.uuid()) {
    _byUuid.forEach(event.hashOfUuid(), [&](const Record& record) {
      if (record.disk->uuid() == event.uuid() && (!first || record.number < first->number)) {
        first = &record;
      }
    });
  }
  return first == nullptr ? none : first->disk;
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
