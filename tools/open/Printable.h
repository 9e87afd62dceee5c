#pragma once

#include <string>

namespace ravelin::open {

/// The text in one line of valid UTF-8: whatever can not be shown is shown as U+FFFD.
[[nodiscard]] std::string printable(const std::string& text);

}  // namespace ravelin::open
