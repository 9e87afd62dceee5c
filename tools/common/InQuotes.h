#pragma once

#include <string>
#include <string_view>

namespace ravelin {

/// The text as a message names what the user typed. Not called quoted, because std::quoted would
/// take part in calls with a std::string. Any thread.
inline std::string inQuotes(std::string_view text) {
  return std::string("'").append(text).append("'");
}

}  // namespace ravelin
