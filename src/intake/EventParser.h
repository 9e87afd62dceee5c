#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "disk/Disk.h"

namespace ravelin {

/// Turns the text of an announcement into a record.
class EventParser {
 public:
  /// What became of a text.
  enum class Outcome {
    read,
    notAscii,    ///< there are no texts
    unknownKey,  ///< the texts are what stands before that key
  };
  struct Reading {
    Outcome outcome = Outcome::read;
    std::string_view unknownKey;  ///< a part of the payload
  };

  /// Reads the pairs as `parse` does, but writes nothing to the log. The texts, none of which there
  /// is before, are parts of the payload. Any thread.
  static Reading read(std::span<const std::byte> payload, Disk::TextViews& texts);

  /// Reads the "key:value" pairs of one datagram, cut at every ";". An item without a colon is
  /// passed over; with an unknown key the result is null. Bytes outside 7-bit ASCII make it a
  /// record without any text. Whether the announcement is complete is not judged here. An
  /// announcement that a disk was mounted or unmounted is written to the log. Any thread.
  static DiskPtr parse(std::span<const std::byte> payload);
};

}  // namespace ravelin
