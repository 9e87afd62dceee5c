#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace ravelin::check {

/// Takes the place of the log for its lifetime, so that what the agent's classes do here does not
/// stand in the log as if the agent had done it. One thread.
class LogCollector final : public platform::SystemLog {
 public:
  std::size_t log(Level level, std::string_view messageTemplate) override {
    if (level == Level::error) {
      _lastError = messageTemplate;
    }
    return 0;
  }

  /// The last line about a failure, which is then forgotten; empty where there is none.
  std::string takeLastError() { return std::exchange(_lastError, {}); }

 private:
  std::string _lastError;
  const platform::Substitute<platform::SystemLog> _inForce{*this};
};

}  // namespace ravelin::check
