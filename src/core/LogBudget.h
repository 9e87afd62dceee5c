#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "base/ThreadSafety.h"

namespace ravelin {

/// The bytes that lines which somebody else causes may take in the log: so many at once, refilled
/// with so many a second. Lines that find too little are suppressed, and counted until that is
/// told. Any thread.
class LogBudget {
 public:
  using Clock = std::chrono::steady_clock;

  /// Bytes at once, and bytes a second.
  static constexpr std::size_t AT_ONCE = std::size_t{1024} * 1024;
  static constexpr std::size_t A_SECOND = std::size_t{64} * 1024;

  /// So long after the last suppressed line the suppressing counts as ended.
  static constexpr std::chrono::seconds QUIET{1};

  /// Takes the bytes of a longest line; false, and one more suppressed line, where they are not
  /// there. `now` may lie a little before that of another thread.
  bool reserve(Clock::time_point now);

  /// Gives back, after `reserve`, what the line has not used.
  void settle(std::size_t used);

  /// How many lines have been suppressed and not been told of; 0 while that has not ended. They are
  /// told of with this.
  std::uint64_t takeEnded(Clock::time_point now);

  /// The same, ended or not.
  std::uint64_t takeSuppressed();

 private:
  Mutex _mutex;
  std::size_t _available GUARDED_BY(_mutex) = AT_ONCE;
  Clock::time_point _refilled GUARDED_BY(_mutex);
  std::uint64_t _suppressed GUARDED_BY(_mutex) = 0;
  Clock::time_point _lastSuppressed GUARDED_BY(_mutex);
};

}  // namespace ravelin
