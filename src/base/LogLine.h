#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ravelin {

/// The longest line, in bytes, that is written to a log. Without a limit a datagram of a few bytes
/// could, expanded, fill a disk.
inline constexpr std::size_t LOG_LINE_LIMIT = std::size_t{8} * 1024;

/// What ends a line that has been cut.
inline constexpr std::string_view LOG_LINE_CUT = " [cut]";

/// The line as it is, or, if it is longer than the limit in bytes, cut between two characters so
/// that it is within the limit with the mark at its end. Any thread.
[[nodiscard]] std::string cutLogLine(std::string line, std::size_t limit = LOG_LINE_LIMIT);

}  // namespace ravelin
