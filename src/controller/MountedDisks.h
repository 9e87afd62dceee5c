#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <vector>

#include "disk/Disk.h"
#include "disk/HashIndex.h"
#include "disk/SenderTally.h"
#include "disk/TextKey.h"

namespace ravelin {

/// The list of mounted records, in the order in which they were mounted. Finding records by their
/// uuid or their device, adding and removing take hardly longer for a longer list, whatever the
/// texts, and have the result of a walk over the list. Only records with the same uuid, which
/// announcements never make, are looked through one by one. One thread at a time.
class MountedDisks {
 public:
  /// Adds the record at the end.
  void append(DiskPtr disk);

  /// Takes out every record to which this one, as the receiver, is equal; nothing when there is
  /// none.
  void remove(const Disk& disk);

  /// The first record with the uuid of the event, or null, valid until the list changes. A null
  /// uuid finds nothing.
  [[nodiscard]] const DiskPtr& find(const Disk& event) const;

  /// The records of the device with the MAC address, in list order. A null one finds nothing.
  [[nodiscard]] std::vector<DiskPtr> ofDevice(const Text& macAddress) const;

  /// A copy of the list.
  [[nodiscard]] std::vector<DiskPtr> copy() const;

  [[nodiscard]] std::size_t count() const { return _records.size(); }

  /// The records and their texts, in all and by the senders whose announcements mounted them.
  [[nodiscard]] const SenderTally& tally() const { return _tally; }

 private:
  struct Record;
  using Place = std::list<Record>::iterator;
  /// Records by a text of theirs, those with the same text in list order.
  using OrderedIndex = std::multimap<TextKey, Place>;

  struct Record {
    DiskPtr disk;
    std::uint64_t number = 0;  // grows along the list
    Place place;
    OrderedIndex::iterator byMacAddress;  // where the disk has one
  };

  void _remove(Place record);

  std::list<Record> _records;
  HashIndex<Record> _byUuid;
  OrderedIndex _byMacAddress;
  std::uint64_t _numberOfNext = 0;
  SenderTally _tally;
};

}  // namespace ravelin
