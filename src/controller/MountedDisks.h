#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <vector>

#include "disk/Disk.h"
#include "disk/SenderTally.h"
#include "disk/TextKey.h"

namespace ravelin {

/// The list of mounted records, in the order in which they were mounted. Finding records by their
/// uuid or their device, adding and removing take hardly longer for a longer list, whatever the
/// texts, and have the result of a walk over the list. One thread at a time.
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

  /// The records and their texts, in all and by the senders whose announcements mounted them.
  [[nodiscard]] const SenderTally& tally() const { return _tally; }

 private:
  struct Record;
  using Place = std::list<Record>::iterator;
  /// Records by a text of theirs, those with the same text in list order.
  using Index = std::multimap<TextKey, Place>;

  struct Record {
    DiskPtr disk;
    Index::iterator byUuid;  // where the disk has one
    Index::iterator byMacAddress;
  };

  void _remove(Place record);

  std::list<Record> _records;
  Index _byUuid;
  Index _byMacAddress;
  SenderTally _tally;
};

}  // namespace ravelin
