#pragma once

#include <string>

#include "base/Visible.h"

namespace ravelin::open {

/// What others say, in one line for people.
[[nodiscard]] inline std::string printable(const std::string& text) { return visibleLine(text); }

}  // namespace ravelin::open
