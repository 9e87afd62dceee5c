#pragma once

#include <cstdint>
#include <string_view>

namespace ravelin {

enum LogType : std::int32_t { LogTypeInfo = 0, LogTypeWarning = 1, LogTypeError = 2 };

/// Writes the agent's diagnostic lines to the system log, with a copy on standard error. Never
/// fails and never waits. Any thread.
class Logger {
 public:
  /// Writes the message, which the log service takes as a template without arguments. A log type
  /// that is none of the three writes nothing. Suppressed lines are reported first.
  static void logMessage(std::string_view message, std::int32_t logType);

  /// The same for a line that anybody who sends datagrams can cause at will: all such lines share
  /// one budget of bytes (see LogBudget). A line that goes over it is suppressed.
  static void logPeerMessage(std::string_view message, std::int32_t logType);

  /// Writes the text, which is data, to the platform's console log, within the same budget.
  static void consolePeerMessage(std::string_view text);

  /// Reports in one line how many lines have been suppressed, once that has ended. While there are
  /// any, the main thread's loop calls this twice a second: the next line, which would report them
  /// too, may never come.
  static void tellSuppressed();
};

}  // namespace ravelin
