#pragma once

#include <array>
#include <cstddef>
#include <unordered_set>

#include "disk/Disk.h"

namespace ravelin {

/// Answers whether one of many disks is equal, as the receiver, to another disk, in a time that
/// does not grow with their number. The receivers' absent texts match anything, so the disks are
/// kept apart by which of the five texts they have: one look-up for each such set of texts in use.
/// The disks are not owned; they must outlive their stay and keep their texts. One thread.
class WaitingIndex {
 public:
  WaitingIndex();

  void insert(const Disk& disk);

  /// Takes out the disk, by identity; nothing when it is not in.
  void erase(const Disk& disk);

  [[nodiscard]] bool containsReceiverEqualTo(const Disk& other) const;

 private:
  /// One bit for each of the five texts.
  using Present = unsigned;
  static constexpr std::size_t KINDS = 1U << 5U;

  struct Hash {
    Present present;
    std::size_t operator()(const Disk* disk) const;
  };
  struct Equal {
    Present present;
    bool operator()(const Disk* one, const Disk* other) const;
  };
  using Disks = std::unordered_multiset<const Disk*, Hash, Equal>;

  static Present _presentIn(const Disk& disk);

  std::array<Disks, KINDS> _kinds;
};

}  // namespace ravelin
