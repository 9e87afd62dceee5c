#include "controller/LazyTimer.h"

#include <utility>

namespace ravelin {

using platform::RunLoop;

void LazyTimer::start(RunLoop& loop, RunLoop::Seconds interval, RunLoop::Action action,
                      HasWork hasWork) {
  _loop = &loop;
  _hasWork = std::move(hasWork);
  _timer = loop.scheduleTimer(interval, [this, action = std::move(action)] {
    action();
    _sleepWithoutWork();
  });
  _sleepWithoutWork();
}

void LazyTimer::wake() {
  if (_sleeps && _sleeps.exchange(false)) {
    _loop->perform([this, since = std::chrono::steady_clock::now()] {
      if (_timer) {
        _timer->resume(since);
      }
    });
  }
}

void LazyTimer::stop() {
  _sleeps = false;
  _timer.reset();
}

void LazyTimer::_sleepWithoutWork() {
  // Said before the look: work that comes after the look finds the timer asleep.
  _sleeps = true;
  if (!_hasWork()) {
    _timer->suspend();
  } else {
    _sleeps = false;
  }
}

}  // namespace ravelin
