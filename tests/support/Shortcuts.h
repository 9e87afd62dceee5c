#pragma once

#include <string>

namespace ravelin::test {

/// The content of a file that is a shortcut, with this text after its first line.
inline std::string shortcutWith(const std::string& text) {
  return std::string("# Ravelin Disk shortcut\n").append(text);
}

}  // namespace ravelin::test
