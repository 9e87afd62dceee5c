#include "core/Logger.h"

#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace ravelin {

namespace platform {

// The log service is the system's, the identity under which it is opened is the agent's.
template <>
SystemLog& native<SystemLog>() {
  static SystemLog& asl = *SystemLog::open("Ravelin Disk", "Daemon", true).release();
  return asl;
}

}  // namespace platform

void Logger::logMessage(std::string_view message, std::int32_t logType) {
  using Level = platform::SystemLog::Level;
  auto& asl = platform::service<platform::SystemLog>();
  switch (logType) {
    case LogTypeInfo:
      asl.log(Level::info, message);
      break;
    case LogTypeWarning:
      asl.log(Level::warning, message);
      break;
    case LogTypeError:
      asl.log(Level::error, message);
      break;
    default:
      break;
  }
}

}  // namespace ravelin
