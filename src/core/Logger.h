#pragma once

#include <cstdint>
#include <string_view>

namespace ravelin {

enum LogType : std::int32_t { LogTypeInfo = 0, LogTypeWarning = 1, LogTypeError = 2 };

/// Writes the agent's diagnostic lines to the system log, with a copy on standard error.
class Logger {
 public:
  /// Writes the message, which the log service takes as a template without arguments. A log type
  /// that is none of the three writes nothing. Never fails and never waits. Any thread.
  static void logMessage(std::string_view message, std::int32_t logType);
};

}  // namespace ravelin
