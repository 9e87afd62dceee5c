#pragma once

#include <string>
#include <string_view>

namespace ravelin {

/// The statuses with which a command ends.
inline constexpr int SUCCEEDED = 0;
inline constexpr int FAILED = 1;
inline constexpr int MISUSED = 2;

/// Why a command cannot go on.
struct Failure {
  int status;           ///< FAILED, MISUSED or one of the command's own
  std::string message;  ///< for people; made printable where it is printed
};

/// What is wrong with an option or an argument.
[[nodiscard]] Failure misuse(std::string_view argument, std::string_view explanation);

/// That the value of an option or an argument is not what is wanted.
[[nodiscard]] Failure unwanted(std::string_view argument, std::string_view wanted,
                               std::string_view value);

}  // namespace ravelin
