#include "disk/Queue.h"

#include <iterator>
#include <utility>

#include "base/Precondition.h"

namespace ravelin {

Queue::Turn Queue::_turnOfNext(std::uint32_t sender) {
  const Turn current = _lastOfTurn.empty() ? 0 : _lastOfTurn.begin()->first;
  Position& position = _positions[sender];
  if (position.turn < current) {
    position = {.turn = current};
  }
  if (position.taken == TURN) {
    position = {.turn = position.turn + 1};
  }
  ++position.taken;
  return position.turn;
}

void Queue::enqueue(DiskPtr disk) {
  precondition(disk != nullptr, "Queue::enqueue(disk)", "disk != null");
  _index.insert(*disk);
  _tally.add(*disk);
  const Turn turn = _turnOfNext(disk->sender());
  const auto later = _lastOfTurn.upper_bound(turn);
  const auto after =
      later == _lastOfTurn.begin() ? _array.begin() : std::next(std::prev(later)->second);
  _lastOfTurn[turn] = _array.insert(after, std::move(disk));
}

DiskPtr Queue::dequeue() {
  if (_array.empty()) {
    return nullptr;
  }
  if (_lastOfTurn.begin()->second == _array.begin()) {
    _lastOfTurn.erase(_lastOfTurn.begin());
  }
  DiskPtr head = std::move(_array.front());
  _array.pop_front();
  _index.erase(*head);
  _tally.subtract(*head);
  if (_tally.of(head->sender()).disks == 0) {
    _positions.erase(head->sender());
  }
  return head;
}

bool Queue::containsReceiverEqualTo(const Disk& disk) const {
  return _index.containsReceiverEqualTo(disk);
}

}  // namespace ravelin
