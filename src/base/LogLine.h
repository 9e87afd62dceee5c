#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ravelin {

/// The longest line, in bytes, that is written to a log. More would let a stranger's datagram of a
/// few bytes, expanded, fill a disk.
inline constexpr std::size_t LOG_LINE_LIMIT = std::size_t{8} * 1024;

/// What ends a line that has been cut.
inline constexpr std::string_view LOG_LINE_CUT = " [cut]";

/// The line, or, where it is longer than the limit in bytes, so much of its beginning, in whole
/// characters, that the mark fits behind it. Any thread.
[[nodiscard]] std::string cutLogLine(std::string line, std::size_t limit = LOG_LINE_LIMIT);

}  // namespace ravelin
