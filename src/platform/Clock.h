#pragma once

#include <chrono>

#include "platform/Service.h"

namespace ravelin::platform {

/// The wall clock. Any thread.
class Clock {
 public:
  using Date = std::chrono::system_clock::time_point;

  virtual ~Clock() = default;

  /// The current date and time, with sub-second resolution.
  virtual Date now() = 0;
};

template <>
Clock& native<Clock>();

}  // namespace ravelin::platform
