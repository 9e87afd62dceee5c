#include "disk/Queue.h"

#include "platform/Precondition.h"

namespace ravelin {

namespace {

std::size_t textSizeOf(const Disk& disk) {
  std::size_t size = 0;
  for (const Text* text :
       {&disk.eventName(), &disk.macAddress(), &disk.ipAddress(), &disk.uuid(), &disk.label()}) {
    size += *text ? (*text)->size() : 0;
  }
  return size;
}

}  // namespace

void Queue::enqueue(DiskPtr disk) {
  precondition(disk != nullptr, "Queue::enqueue(disk)", "disk != null");
  _index.insert(*disk);
  _textSize += textSizeOf(*disk);
  _array.push_back(std::move(disk));
}

DiskPtr Queue::dequeue() {
  if (_array.empty()) {
    return nullptr;
  }
  DiskPtr head = std::move(_array.front());
  _array.pop_front();
  _index.erase(*head);
  _textSize -= textSizeOf(*head);
  return head;
}

bool Queue::containsReceiverEqualTo(const Disk& disk) const {
  return _index.containsReceiverEqualTo(disk);
}

}  // namespace ravelin
