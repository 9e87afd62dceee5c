#pragma once

#include <utility>

#include "base/ThreadSafety.h"

namespace ravelin {

/// A value that is read and replaced as a whole. Any thread.
template <class Value>
class AtomicProperty {
 public:
  /// A copy of the value.
  [[nodiscard]] Value get() const {
    const LockGuard lock(_mutex);
    return _value;
  }

  /// Puts the value in the place of the one before, which is let go of on this thread.
  void set(Value value) {
    // Not under the lock: what is let go of may do anything at its end.
    const LockGuard lock(_mutex);
    std::swap(_value, value);
  }

 private:
  mutable Mutex _mutex;
  Value _value GUARDED_BY(_mutex);
};

}  // namespace ravelin
