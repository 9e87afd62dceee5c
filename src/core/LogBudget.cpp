#include "core/LogBudget.h"

#include <algorithm>
#include <utility>

#include "base/LogLine.h"

namespace ravelin {

bool LogBudget::reserve(Clock::time_point now) {
  bool isFirst = false;
  {
    const LockGuard lock(_mutex);
    if (_take(now)) {
      return true;
    }
    isFirst = _suppressed++ == 0;
    _lastSuppressed = now;
  }
  if (isFirst && _firstIsSuppressed) {
    _firstIsSuppressed();
  }
  return false;
}

bool LogBudget::_take(Clock::time_point now) {
  // Whole milliseconds, so that what is left of one counts the next time.
  constexpr std::chrono::milliseconds FULL{AT_ONCE * 1000 / A_SECOND};
  const auto passed = std::chrono::floor<std::chrono::milliseconds>(
      std::max(now - _refilled, Clock::duration::zero()));
  if (passed >= FULL) {
    _available = AT_ONCE;
    _refilled = now;
  } else {
    const std::size_t bytes = static_cast<std::size_t>(passed.count()) * A_SECOND / 1000;
    _available = std::min(_available + bytes, AT_ONCE);
    _refilled += passed;
  }
  if (_available < LOG_LINE_LIMIT) {
    return false;
  }
  _available -= LOG_LINE_LIMIT;
  return true;
}

void LogBudget::settle(std::size_t used) {
  const LockGuard lock(_mutex);
  _available = std::min(_available + LOG_LINE_LIMIT - std::min(used, LOG_LINE_LIMIT), AT_ONCE);
}

bool LogBudget::hasSuppressed() const {
  const LockGuard lock(_mutex);
  return _suppressed != 0;
}

std::uint64_t LogBudget::takeEnded(Clock::time_point now) {
  const LockGuard lock(_mutex);
  return now - _lastSuppressed < QUIET ? 0 : std::exchange(_suppressed, 0);
}

std::uint64_t LogBudget::takeSuppressed() {
  const LockGuard lock(_mutex);
  return std::exchange(_suppressed, 0);
}

}  // namespace ravelin
