#include "platform/ConsoleLog.h"

#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <utility>

#include "base/LogLine.h"
#include "base/Visible.h"
#include "platform/linux/StandardError.h"

namespace ravelin::platform {

/// Here the console log is standard error alone. Never waits.
std::size_t consoleLog(std::string_view text) {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  std::array<char, 64> date{};
  (void)::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::array<char, 64> milliseconds{};
  (void)std::snprintf(milliseconds.data(), milliseconds.size(), ".%03ld",
                      static_cast<long>(now.tv_usec / 1000));

  std::string line = date.data();
  line.append(milliseconds.data()).append(" ").append(program_invocation_short_name);
  line.append("[").append(std::to_string(::getpid())).append(":");
  line.append(std::to_string(::gettid())).append("] ");
  line += visibleLines(text.substr(0, LOG_LINE_LIMIT + 1));
  line = cutLogLine(std::move(line), LOG_LINE_LIMIT - 1) + "\n";
  writeToStandardError(line);
  return line.size();
}

}  // namespace ravelin::platform
