#pragma once

#include <string_view>

namespace ravelin {

/// Writes the last message of the process.
using PreconditionReport = void (*)(std::string_view message);

/// From now on the message of a failed precondition is written by this function; before, it goes to
/// standard error as it is. Any thread.
void setPreconditionReport(PreconditionReport report);

/// Ends the process in every build type, with a message that names the operation and the condition.
/// For programming errors only: nothing that a peer sends may lead here.
[[noreturn]] void preconditionFailed(std::string_view operation, std::string_view condition);

/// Ends the process, as above, unless the condition holds. Any thread.
inline void precondition(bool holds, std::string_view operation, std::string_view condition) {
  if (!holds) [[unlikely]] {
    preconditionFailed(operation, condition);
  }
}

}  // namespace ravelin
