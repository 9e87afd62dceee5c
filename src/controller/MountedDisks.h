#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "disk/Disk.h"
#include "disk/TextHash.h"

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

  [[nodiscard]] std::size_t count() const { return _disks.size(); }

 private:
  /// A record's place in the order of mounting.
  using Place = std::uint64_t;
  using Index = std::unordered_map<std::string, std::set<Place>, TextHash, std::equal_to<>>;

  static void _insert(Index& index, const Text& text, Place place);
  static void _erase(Index& index, const Text& text, Place place);

  std::map<Place, DiskPtr> _disks;
  Index _byUuid;
  Index _byMacAddress;
  Place _next = 0;
};

}  // namespace ravelin
