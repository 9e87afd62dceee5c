#pragma once

#include <cstdlib>

namespace ravelin::fuzz {

/// Ends the target, which its fuzzer then reports with the input, unless the property holds.
inline void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace ravelin::fuzz
