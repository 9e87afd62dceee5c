#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "disk/Disk.h"
#include "disk/HashTable.h"

namespace ravelin {

/// Answers whether one of many disks is equal, as the receiver, to another disk, in a time that
/// does not grow with their number. The receivers' absent texts match anything, so each disk is
/// found by those texts that it has: one look-up for each set of texts that some receivers have.
/// The disks are not owned; they must outlive their stay and keep their texts. One thread.
class WaitingIndex {
 public:
  void insert(const Disk& disk);

  /// Takes out the disk, which is in, by identity.
  void erase(const Disk& disk);

  [[nodiscard]] bool containsReceiverEqualTo(const Disk& other) const;

 private:
  /// A set of texts: one bit for each of the five.
  using Kind = std::uint32_t;
  static constexpr std::size_t KINDS = 1U << 5U;

  /// Which texts a disk has, and their hashes.
  struct Features;

  HashTable<const Disk*> _disks;
  std::array<std::size_t, KINDS> _countOfKind{};
  std::uint32_t _kindsInUse = 0;  // one bit for each kind
};

}  // namespace ravelin
