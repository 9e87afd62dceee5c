#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "common/Failure.h"

namespace ravelin::open {

/// Why a file that Ravelin Disk has not made is not opened.
[[nodiscard]] Failure foreign();

/// The URL of the share that a shortcut leads to, from what follows the shortcut's first line: a
/// desktop entry of the type Link with one URL. A failure unless it is that of one share, as guest.
std::variant<std::string, Failure> urlInEntry(std::string_view entry);

}  // namespace ravelin::open
