#pragma once

#include <cstddef>
#include <span>

#include "disk/Disk.h"

namespace ravelin {

/// Turns the text of an announcement into a record.
class EventParser {
 public:
  /// Reads the "key:value" pairs of one datagram, cut at every ";". An item without a colon is
  /// passed over; an unknown key makes the answer null. Bytes outside 7-bit ASCII make it a record
  /// without any text. Which texts must be there is not judged here. An announcement that a disk
  /// was mounted or unmounted is written to the log. Any thread.
  static DiskPtr parse(std::span<const std::byte> payload);
};

}  // namespace ravelin
