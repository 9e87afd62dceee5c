#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace ravelin::test {

/// One line as it was given to the log service, not expanded.
struct LogLine {
  platform::SystemLog::Level level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

inline void PrintTo(const LogLine& line, std::ostream* out) {
  *out << static_cast<int>(line.level) << " \"" << line.text << '"';
}

inline LogLine info(std::string text) {
  return {.level = platform::SystemLog::Level::info, .text = std::move(text)};
}

inline LogLine error(std::string text) {
  return {.level = platform::SystemLog::Level::error, .text = std::move(text)};
}

/// Takes the place of the system log for its lifetime and keeps what is written. Any thread.
class RecordingLog final : public platform::SystemLog {
 public:
  std::size_t log(Level level, std::string_view messageTemplate) override {
    const LogLine line{.level = level, .text = std::string(messageTemplate)};
    {
      const std::lock_guard lock(_mutex);
      _lines.push_back(line);
    }
    if (then) {
      then(line);
    }
    return 0;  // bytes, so that no line is suppressed
  }

  /// Called with each line that has been kept, on the thread that writes it. To be set before
  /// others write.
  std::function<void(const LogLine&)> then;

  [[nodiscard]] std::vector<LogLine> lines() const {
    const std::lock_guard lock(_mutex);
    return _lines;
  }

  /// The lines so far, which are then forgotten.
  std::vector<LogLine> take() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_lines, {});
  }

  [[nodiscard]] std::size_t count(const LogLine& line) const {
    const std::lock_guard lock(_mutex);
    return static_cast<std::size_t>(std::ranges::count(_lines, line));
  }

 private:
  mutable std::mutex _mutex;
  std::vector<LogLine> _lines;
  const platform::Substitute<platform::SystemLog> _inForce{*this};
};

}  // namespace ravelin::test
