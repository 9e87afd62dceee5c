#pragma once

#include <string>

namespace ravelin {

/// The statuses with which the command ends.
inline constexpr int SUCCEEDED = 0;
inline constexpr int FAILED = 1;
inline constexpr int MISUSED = 2;

/// Why the command cannot go on.
struct Failure {
  int status;           ///< FAILED or MISUSED
  std::string message;  ///< one line, for people
};

}  // namespace ravelin
