#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "base/ThreadSafety.h"

namespace ravelin {

/// A token bucket of the bytes that lines caused by datagrams may take in the log. Lines for which
/// it holds too little are suppressed, and counted until the count is reported. Any thread.
class LogBudget {
 public:
  using Clock = std::chrono::steady_clock;

  /// The bytes in a full bucket, and those that are added in a second.
  static constexpr std::size_t AT_ONCE = std::size_t{1024} * 1024;
  static constexpr std::size_t A_SECOND = std::size_t{64} * 1024;

  /// Suppressing counts as ended when no line has been suppressed for this long.
  static constexpr std::chrono::seconds QUIET{1};

  /// From now on the action is called, on the thread of `reserve`, when a line is suppressed and
  /// there are none before it that have not been reported.
  explicit LogBudget(std::function<void()> firstIsSuppressed = nullptr)
      : _firstIsSuppressed(std::move(firstIsSuppressed)) {}

  /// Takes the bytes of the longest line; if there are too few, returns false and counts a
  /// suppressed line. `now` may be a little earlier than another thread's.
  bool reserve(Clock::time_point now) EXCLUDES(_mutex);

  /// Gives back, after `reserve`, what the line has not used.
  void settle(std::size_t used);

  /// Whether lines have been suppressed since the last report.
  [[nodiscard]] bool hasSuppressed() const;

  /// How many lines have been suppressed since the last report; 0 while suppressing has not ended.
  /// The count starts again: the caller reports it.
  std::uint64_t takeEnded(Clock::time_point now);

  /// The same, ended or not.
  std::uint64_t takeSuppressed();

 private:
  bool _take(Clock::time_point now) REQUIRES(_mutex);

  const std::function<void()> _firstIsSuppressed;
  mutable Mutex _mutex;
  std::size_t _available GUARDED_BY(_mutex) = AT_ONCE;
  Clock::time_point _refilled GUARDED_BY(_mutex);
  std::uint64_t _suppressed GUARDED_BY(_mutex) = 0;
  Clock::time_point _lastSuppressed GUARDED_BY(_mutex);
};

}  // namespace ravelin
