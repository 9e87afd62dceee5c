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

  /// Replaces the value; the former one is destroyed on this thread.
  void set(Value value) {
    // The former value outlives the lock, for its destructor may do anything.
    const LockGuard lock(_mutex);
    std::swap(_value, value);
  }

 private:
  mutable Mutex _mutex;
  Value _value GUARDED_BY(_mutex);
};

}  // namespace ravelin
