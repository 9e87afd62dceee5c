#pragma once

#include <string>
#include <string_view>

#include "base/Utf8.h"

namespace ravelin {

/// The text as a message names what the user typed. Not called quoted, because std::quoted would
/// take part in calls with a std::string. Any thread.
inline std::string inQuotes(std::string_view text) {
  return std::string("'").append(text).append("'");
}

/// The same of what somebody else has written, of which only the beginning is named where it is
/// long. Any thread.
inline std::string shortInQuotes(std::string_view text) {
  constexpr std::size_t LONGEST = 100;
  const std::string_view beginning = beginningOf(text, LONGEST);
  return beginning.size() == text.size() ? inQuotes(text)
                                         : inQuotes(std::string(beginning).append("..."));
}

}  // namespace ravelin
