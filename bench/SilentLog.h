#pragma once

#include <cstddef>
#include <string_view>

#include "platform/SystemLog.h"

namespace ravelin::bench {

/// What the agent logs is formatted, but goes nowhere.
class SilentLog final : public platform::SystemLog {
 public:
  std::size_t log(Level /*level*/, std::string_view messageTemplate) override {
    _size += messageTemplate.size();
    return 0;
  }

 private:
  std::size_t _size = 0;
};

}  // namespace ravelin::bench
