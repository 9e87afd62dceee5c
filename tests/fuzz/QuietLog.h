#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/SystemLog.h"

namespace ravelin::fuzz {

/// Keeps the lines to itself.
class QuietLog final : public platform::SystemLog {
 public:
  struct Line {
    Level level;
    std::string text;
    bool operator==(const Line&) const = default;
  };

  std::size_t log(Level level, std::string_view messageTemplate) override {
    lines.push_back({.level = level, .text = std::string(messageTemplate)});
    return 0;
  }

  std::vector<Line> lines;
};

}  // namespace ravelin::fuzz
