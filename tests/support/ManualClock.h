#pragma once

#include <atomic>
#include <chrono>

#include "platform/Clock.h"
#include "platform/Service.h"

namespace ravelin::test {

/// Takes the place of the wall clock for its lifetime; it moves only when it is told to. Any
/// thread.
class ManualClock final : public platform::Clock {
 public:
  Date now() override { return _now; }

  template <class Duration>
  void advance(Duration duration) {
    _now = _now.load() + std::chrono::duration_cast<Date::duration>(duration);
  }

 private:
  std::atomic<Date> _now = Date(std::chrono::hours(480'000));
  const platform::Substitute<platform::Clock> _inForce{*this};
};

}  // namespace ravelin::test
