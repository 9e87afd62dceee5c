#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>

#include "disk/Disk.h"
#include "disk/SenderTally.h"
#include "disk/WaitingIndex.h"

namespace ravelin {

/// A first-in first-out queue of disk events, which it owns.
///
/// It is fair to senders. As long as none has more than `TURN` events waiting, which no device ever
/// has, events leave in the order in which they came. What a sender has beyond that lets everything
/// pass that other senders have within theirs: its events come in turns of `TURN`, and everybody's
/// first turn comes before anybody's second. So the wait of an event does not grow with what one
/// other sender sends. The events of one sender always leave in the order in which they came.
///
/// No operation but the walk over `elements` takes notably longer for a longer queue. One thread at
/// a time.
class Queue {
 public:
  /// How many events of one sender are handled before those that others have waiting.
  static constexpr std::size_t TURN = 16;

  /// Appends the event, which must not be null, at the tail of its turn.
  void enqueue(DiskPtr disk);

  /// Takes the head off and returns it, or null when the queue is empty.
  DiskPtr dequeue();

  /// How many events wait.
  [[nodiscard]] std::size_t count() const { return _array.size(); }

  /// The waiting events themselves, head first.
  [[nodiscard]] const std::list<DiskPtr>& elements() const { return _array; }

  /// Whether some waiting event, as the receiver, is equal to the disk, as a walk over `elements`
  /// with isEqual would find.
  [[nodiscard]] bool containsReceiverEqualTo(const Disk& disk) const;

  /// The waiting events and their texts, in all and by sender.
  [[nodiscard]] const SenderTally& tally() const { return _tally; }

 private:
  using Turn = std::uint64_t;
  using Place = std::list<DiskPtr>::iterator;

  /// Where the next event of a sender that has some waiting belongs.
  struct Position {
    Turn turn = 0;
    std::size_t taken = 0;  // of its events in that turn
  };

  Turn _turnOfNext(std::uint32_t sender);

  /// The waiting events, head first. A list in spite of its name, so that places in it stay valid.
  std::list<DiskPtr> _array;
  /// Each turn from the head's to the last one has events: a sender whose next event belongs to a
  /// later turn has filled all before that.
  std::deque<Place> _lastOfTurn;
  Turn _turnOfHead = 0;
  std::map<std::uint32_t, Position> _positions;
  WaitingIndex _index;
  SenderTally _tally;
};

}  // namespace ravelin
