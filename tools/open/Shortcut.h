#pragma once

#include <string>
#include <variant>

#include "common/Failure.h"

namespace ravelin::open {

/// The URL of the share that the shortcut in this file leads to. A failure unless the file is one
/// of Ravelin Disk's own shortcuts; other files are not read further than it takes to know.
std::variant<std::string, Failure> urlOfShortcut(const std::string& path);

}  // namespace ravelin::open
