#include "disk/Queue.h"

#include <iterator>
#include <utility>

#include "base/Precondition.h"

namespace ravelin {

Queue::Turn Queue::_turnOfNext(std::uint32_t sender) {
  Position& position = _positions[sender];
  if (position.turn < _turnOfHead) {
    position = {.turn = _turnOfHead};
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
  const auto turn = static_cast<std::size_t>(_turnOfNext(disk->sender()) - _turnOfHead);
  if (turn < _lastOfTurn.size()) {
    Place& last = _lastOfTurn[turn];
    last = _array.insert(std::next(last), std::move(disk));
  } else {
    _lastOfTurn.push_back(_array.insert(_array.end(), std::move(disk)));
  }
}

DiskPtr Queue::dequeue() {
  if (_array.empty()) {
    return nullptr;
  }
  if (_lastOfTurn.front() == _array.begin()) {
    _lastOfTurn.pop_front();
    _turnOfHead = _lastOfTurn.empty() ? 0 : _turnOfHead + 1;
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
