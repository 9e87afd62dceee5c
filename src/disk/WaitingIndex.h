#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "disk/Disk.h"
#include "disk/HashIndex.h"

namespace ravelin {

/// Tells whether one of many disks is equal, as the receiver, to another disk, without a walk over
/// all of them. The receivers' absent texts match anything, so each disk is found by those texts
/// that it has: one look-up for each set of texts that some receivers have. No choice of texts
/// makes a look-up slow, since their hashes are keyed. There should not be many disks that have all
/// texts alike. The disks are not owned; while they are in the index they must exist and keep their
/// texts. One thread at a time.
class WaitingIndex {
 public:
  void insert(const Disk& disk);

  /// Takes out this very disk, which must be in the index.
  void erase(const Disk& disk);

  [[nodiscard]] bool containsReceiverEqualTo(const Disk& other) const;

 private:
  static constexpr std::size_t KINDS = std::size_t{1} << Disk::TEXT_COUNT;

  HashIndex<const Disk> _disks;
  /// How many have these texts and no other ones, and one bit for each such set that some have.
  std::array<std::size_t, KINDS> _countOfKind{};
  std::uint32_t _kindsInUse = 0;
};

}  // namespace ravelin
