#pragma once

#include <array>
#include <cstddef>
#include <list>
#include <vector>

#include "disk/Disk.h"
#include "disk/HashTable.h"

namespace ravelin {

/// The list of mounted records, in the order in which they were mounted. Finding records by their
/// uuid or their device, adding and removing take no longer for a longer list, and answer what a
/// walk over the list answers. One thread at a time.
class MountedDisks {
 public:
  /// Adds the record at the end.
  void append(DiskPtr disk);

  /// Takes out every record to which this one, as the receiver, is equal; nothing when there is
  /// none.
  void remove(const Disk& disk);

  /// The first record with the uuid, or null. A null uuid finds nothing.
  [[nodiscard]] DiskPtr find(const Text& uuid) const;

  /// The records of the device with the MAC address, in list order. A null one finds nothing.
  [[nodiscard]] std::vector<DiskPtr> ofDevice(const Text& macAddress) const;

  /// A copy of the list.
  [[nodiscard]] std::vector<DiskPtr> copy() const;

  [[nodiscard]] std::size_t count() const { return _records.size(); }

 private:
  /// The texts by which records are found.
  enum Key { UUID, MAC_ADDRESS, KEYS };

  /// The records that have a text in common form a ring in list order.
  struct Record {
    DiskPtr disk;
    std::list<Record>::iterator self;
    std::array<Record*, KEYS> previous{};
    std::array<Record*, KEYS> next{};
  };

  /// What is known about a ring without looking at a record, which may be far away in memory.
  struct Ring {
    Record* first = nullptr;
    const Disk* disk = nullptr;  // of the first record
    explicit operator bool() const { return first != nullptr; }
  };

  static const Text& _textOf(const Disk& disk, Key key);
  /// The first record with the text, or null.
  [[nodiscard]] Record* _first(Key key, const Text& text) const;
  void _join(Key key, Record& record);
  void _leave(Key key, Record& record);
  void _remove(Record& record);

  std::list<Record> _records;
  std::array<HashTable<Ring>, KEYS> _rings;
};

}  // namespace ravelin
