#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "platform/RunLoop.h"

namespace ravelin {

/// A timer of a run loop that sleeps while there is nothing for it to do, so that it wakes nobody
/// then. What it does, it does at the times at which it would do it if it never slept.
class LazyTimer {
 public:
  /// Whether there is something to do, now or at a later time. Called on the loop's thread.
  using HasWork = std::function<bool()>;

  LazyTimer() = default;
  LazyTimer(const LazyTimer&) = delete;
  LazyTimer& operator=(const LazyTimer&) = delete;

  /// Calls the action once per interval while there is work. On the loop's thread, once.
  void start(platform::RunLoop& loop, platform::RunLoop::Seconds interval,
             platform::RunLoop::Action action, HasWork hasWork);

  /// To be called after there has come to be work: what was due at a time after this call is not
  /// missed. Any thread, but not before start() has returned; nothing happens after stop().
  void wake();

  /// Ends the timer. On the loop's thread.
  void stop();

 private:
  void _sleepWithoutWork();

  platform::RunLoop* _loop = nullptr;
  HasWork _hasWork;
  std::unique_ptr<platform::RunLoop::Timer> _timer;
  std::atomic<bool> _sleeps = false;
};

}  // namespace ravelin
