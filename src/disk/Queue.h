#pragma once

#include <cstddef>
#include <deque>

#include "disk/Disk.h"
#include "disk/WaitingIndex.h"

namespace ravelin {

/// A first-in first-out queue of disk events, which it owns. No operation but the walk over
/// `elements` takes longer for a longer queue. One thread at a time.
class Queue {
 public:
  /// Appends the event, which must not be null, at the tail.
  void enqueue(DiskPtr disk);

  /// Takes the head off and returns it, or null when the queue is empty.
  DiskPtr dequeue();

  /// How many events wait.
  [[nodiscard]] std::size_t count() const { return _array.size(); }

  /// The waiting events themselves, head first.
  [[nodiscard]] const std::deque<DiskPtr>& elements() const { return _array; }

  /// Whether some waiting event, as the receiver, is equal to the disk: the answer of a walk over
  /// `elements` with isEqual.
  [[nodiscard]] bool containsReceiverEqualTo(const Disk& disk) const;

  /// The bytes of text that the waiting events hold.
  [[nodiscard]] std::size_t textSize() const { return _textSize; }

 private:
  std::deque<DiskPtr> _array;
  WaitingIndex _index;
  std::size_t _textSize = 0;
};

}  // namespace ravelin
