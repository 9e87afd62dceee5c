#pragma once

#include <string>
#include <string_view>

namespace ravelin {

/// The text as a message names what the user typed. Any thread.
inline std::string quoted(std::string_view text) {
  return std::string("'").append(text).append("'");
}

}  // namespace ravelin
