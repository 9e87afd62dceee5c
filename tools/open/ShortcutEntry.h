#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "common/Problem.h"

namespace ravelin::open {

/// What a file is that Ravelin Disk has not made.
[[nodiscard]] Problem foreign();

/// The URL of the share that a shortcut leads to, from what follows the shortcut's first line: a
/// desktop entry of the type Link with one URL. A problem unless it is that of one share, as guest.
std::variant<std::string, Problem> urlInEntry(std::string_view entry);

}  // namespace ravelin::open
