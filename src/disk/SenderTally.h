#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "disk/Disk.h"

namespace ravelin {

/// How many disks there are, and the bytes of their texts, in all and by the senders of their
/// announcements. It remembers only senders that have some. One thread at a time.
class SenderTally {
 public:
  struct Share {
    std::size_t disks = 0;
    std::size_t text = 0;
  };

  void add(const Disk& disk);

  /// Takes away a disk that was added.
  void subtract(const Disk& disk);

  [[nodiscard]] Share of(std::uint32_t sender) const;
  [[nodiscard]] const Share& all() const { return _all; }

 private:
  // Ordered, not hashed, so that made-up addresses cannot slow the look-up down.
  std::map<std::uint32_t, Share> _shares;
  Share _all;
};

}  // namespace ravelin
