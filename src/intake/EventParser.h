#pragma once

#include <cstddef>
#include <span>

#include "disk/Disk.h"

namespace ravelin {

/// Turns the text of an announcement into a record.
class EventParser {
 public:
  /// Reads the "key:value" pairs of one datagram, cut at every ";". An item without a colon is
  /// passed over; with an unknown key the result is null. Bytes outside 7-bit ASCII make it a
  /// record without any text. Whether the announcement is complete is not judged here. An
  /// announcement that a disk was mounted or unmounted is written to the log. Any thread.
  static DiskPtr parse(std::span<const std::byte> payload);
};

}  // namespace ravelin
