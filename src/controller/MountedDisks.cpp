#include "controller/MountedDisks.h"

#include <iterator>
#include <utility>

#include "disk/TextHash.h"

namespace ravelin {

namespace {

/// Among many disks hardly any is in the processor's cache, and waiting for one piece of it after
/// the other takes longer than everything else: this has them all fetched at the same time.
template <class Ring>
void prefetch(const Ring& ring) {
  __builtin_prefetch(ring.first);
  __builtin_prefetch(ring.disk);
  __builtin_prefetch(reinterpret_cast<const char*>(ring.disk + 1) - 1);
}

}  // namespace

const Text& MountedDisks::_textOf(const Disk& disk, Key key) {
  return key == UUID ? disk.uuid() : disk.macAddress();
}

MountedDisks::Record* MountedDisks::_first(Key key, const Text& text) const {
  if (!text) {
    return nullptr;
  }
  const Ring* const ring = _rings[key].find(TextHash()(*text), [&](const Ring& candidate) {
    prefetch(candidate);
    return _textOf(*candidate.disk, key) == text;
  });
  return ring == nullptr ? nullptr : ring->first;
}

void MountedDisks::_join(Key key, Record& record) {
  const Text& text = _textOf(*record.disk, key);
  if (!text) {
    return;
  }
  Record* first = _first(key, text);
  if (first == nullptr) {
    first = &record;
    record.previous[key] = &record;
    _rings[key].insert(TextHash()(*text), {&record, record.disk.get()});
  }
  // The last one of a ring stands before its first one.
  Record* const last = first->previous[key];
  record.previous[key] = last;
  record.next[key] = first;
  last->next[key] = &record;
  first->previous[key] = &record;
}

void MountedDisks::_leave(Key key, Record& record) {
  const Text& text = _textOf(*record.disk, key);
  if (!text) {
    return;
  }
  const std::size_t hash = TextHash()(*text);
  const auto isFirst = [&](const Ring& ring) { return ring.first == &record; };
  Record* const next = record.next[key];
  if (next == &record) {
    _rings[key].erase(hash, isFirst);
    return;
  }
  if (Ring* const ring = _rings[key].find(hash, isFirst)) {
    *ring = {next, next->disk.get()};
  }
  record.previous[key]->next[key] = next;
  next->previous[key] = record.previous[key];
}

void MountedDisks::append(DiskPtr disk) {
  Record& record = _records.emplace_back();
  record.disk = std::move(disk);
  record.self = std::prev(_records.end());
  _join(UUID, record);
  _join(MAC_ADDRESS, record);
}

void MountedDisks::_remove(Record& record) {
  _leave(UUID, record);
  _leave(MAC_ADDRESS, record);
  _records.erase(record.self);
}

void MountedDisks::remove(const Disk& disk) {
  std::vector<Record*> equals;
  const auto takeEqual = [&](Record& candidate) {
    if (disk.isEqual(*candidate.disk)) {
      equals.push_back(&candidate);
    }
  };
  if (disk.uuid()) {
    Record* const first = _first(UUID, disk.uuid());
    for (Record* record = first; record != nullptr;) {
      takeEqual(*record);
      record = record->next[UUID] == first ? nullptr : record->next[UUID];
    }
  } else {
    for (Record& record : _records) {
      takeEqual(record);
    }
  }
  for (Record* const record : equals) {
    _remove(*record);
  }
}

DiskPtr MountedDisks::find(const Text& uuid) const {
  const Record* const first = _first(UUID, uuid);
  return first == nullptr ? nullptr : first->disk;
}

std::vector<DiskPtr> MountedDisks::ofDevice(const Text& macAddress) const {
  std::vector<DiskPtr> disks;
  const Record* const first = _first(MAC_ADDRESS, macAddress);
  for (const Record* record = first; record != nullptr;) {
    disks.push_back(record->disk);
    record = record->next[MAC_ADDRESS] == first ? nullptr : record->next[MAC_ADDRESS];
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
