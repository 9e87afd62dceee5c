#include "core/Logger.h"

#include <memory>
#include <optional>
#include <string>

#include "core/LogBudget.h"
#include "platform/ConsoleLog.h"
#include "platform/RunLoop.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace ravelin {

namespace {

using platform::RunLoop;
using platform::SystemLog;

void reportWhenEnded();

LogBudget& peerBudget() {
  static auto& budget = *new LogBudget([] { RunLoop::main().perform(reportWhenEnded); });
  return budget;
}

/// Main thread.
void reportWhenEnded() {
  constexpr RunLoop::Seconds INTERVAL{0.5};
  static auto& timer = *new std::unique_ptr<RunLoop::Timer>;
  if (timer == nullptr) {
    timer = RunLoop::main().scheduleTimer(INTERVAL, [] {
      Logger::tellSuppressed();
      if (!peerBudget().hasSuppressed()) {
        timer.reset();
      }
    });
  }
}

/// The log service under the agent's identity, opened at the first line.
SystemLog& opened() {
  static SystemLog& asl = *SystemLog::open("Ravelin Disk", "Daemon", true).release();
  return asl;
}

SystemLog& asl() { return platform::serviceOr<SystemLog>(opened); }

std::optional<SystemLog::Level> levelOf(std::int32_t logType) {
  switch (logType) {
    case LogTypeInfo:
      return SystemLog::Level::info;
    case LogTypeWarning:
      return SystemLog::Level::warning;
    case LogTypeError:
      return SystemLog::Level::error;
    default:
      return std::nullopt;
  }
}

void tell(std::uint64_t suppressed) {
  if (suppressed > 0) {
    asl().log(SystemLog::Level::error,
              "Lines suppressed because datagrams caused too many: " + std::to_string(suppressed));
  }
}

/// Calls what writes the line and returns its bytes, unless the budget is used up.
template <class Write>
void writeWithinBudget(const Write& write) {
  const auto now = LogBudget::Clock::now();
  tell(peerBudget().takeEnded(now));
  if (peerBudget().reserve(now)) {
    peerBudget().settle(write());
  }
}

}  // namespace

void Logger::logMessage(std::string_view message, std::int32_t logType) {
  SystemLog& log = asl();
  if (const auto level = levelOf(logType)) {
    tell(peerBudget().takeSuppressed());
    log.log(*level, message);
  }
}

void Logger::logPeerMessage(std::string_view message, std::int32_t logType) {
  SystemLog& log = asl();
  if (const auto level = levelOf(logType)) {
    writeWithinBudget([&] { return log.log(*level, message); });
  }
}

void Logger::consolePeerMessage(std::string_view text) {
  writeWithinBudget([text] { return platform::consoleLog(text); });
}

void Logger::tellSuppressed() { tell(peerBudget().takeEnded(LogBudget::Clock::now())); }

}  // namespace ravelin
