#pragma once

#include <string_view>

namespace ravelin {

/// Ends the process in every build type, with a message on standard error that names the operation
/// and the condition. For programming errors only: nothing that a peer sends may lead here.
[[noreturn]] void preconditionFailed(std::string_view operation, std::string_view condition);

/// Ends the process, as above, unless the condition holds. Any thread.
inline void precondition(bool holds, std::string_view operation, std::string_view condition) {
  if (!holds) [[unlikely]] {
    preconditionFailed(operation, condition);
  }
}

}  // namespace ravelin
