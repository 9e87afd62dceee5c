#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>

#include "disk/Disk.h"

namespace ravelin {

/// Tells whether one of many disks is equal, as the receiver, to another disk, without a walk over
/// all of them. The receivers' absent texts match anything, so each disk is found by those texts
/// that it has: one look-up for each set of texts that some receivers have. The sets are ordered,
/// so no choice of texts makes a look-up slow. The disks are not owned; while they are in the index
/// they must exist and keep their texts. One thread at a time.
class WaitingIndex {
 public:
  WaitingIndex();

  void insert(const Disk& disk);

  /// Takes out this very disk, which must be in the index.
  void erase(const Disk& disk);

  [[nodiscard]] bool containsReceiverEqualTo(const Disk& other) const;

 private:
  /// A set of texts: one bit for each of the five.
  using Kind = std::uint32_t;
  static constexpr Kind KINDS = 1U << 5U;

  /// A disk, and the hash of those of its texts that make up a kind.
  struct Entry {
    Entry(const Disk& entered, Kind kind);
    const Disk* disk;
    std::size_t hash = 0;
  };

  /// Orders disks by the hash and, where it is the same, by the texts that make up the kind; all
  /// must have these.
  struct Before {
    Kind kind = 0;
    bool operator()(const Entry& one, const Entry& other) const;
  };

  static Kind _kindOf(const Disk& disk);

  std::array<std::multiset<Entry, Before>, KINDS> _disks;  // by their kinds
  Kind _kindsInUse = 0;                                    // one bit for each kind
};

}  // namespace ravelin
