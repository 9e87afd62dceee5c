#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include "base/Text.h"

namespace ravelin::check {

/// The content of a file that the system makes up when it is read; null where it may not be read.
inline Text contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return file.is_open() && !file.bad() ? Text(std::move(content)) : std::nullopt;
}

}  // namespace ravelin::check
