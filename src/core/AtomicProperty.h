#pragma once

#include <mutex>
#include <utility>

namespace ravelin {

/// A value that is read and replaced as a whole. Any thread.
template <class Value>
class AtomicProperty {
 public:
  /// A copy of the value.
  [[nodiscard]] Value get() const {
    const std::lock_guard lock(_mutex);
    return _value;
  }

  /// Puts the value in the place of the one before, which is let go of on this thread.
  void set(Value value) {
    // Not under the lock: what is let go of may do anything at its end.
    const std::lock_guard lock(_mutex);
    std::swap(_value, value);
  }

 private:
  mutable std::mutex _mutex;
  Value _value;
};

}  // namespace ravelin
