#include "platform/Precondition.h"

#include <cstdlib>
#include <string>

#include "platform/ConsoleLog.h"

namespace ravelin {

void preconditionFailed(std::string_view operation, std::string_view condition) {
  std::string message = "Precondition failed in ";
  message.append(operation).append(": ").append(condition);
  platform::consoleLog(message);
  std::abort();
}

}  // namespace ravelin
