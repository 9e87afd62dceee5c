#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ravelin {

/// Items by their hashes: one flat table, no memory of its own for an item. The hashes must be
/// keyed ones (KeyedHash), so that nobody can choose what meets in it, and there should not be many
/// items with the same hash. The items are not owned, and neither they nor their hashes are looked
/// into. One thread at a time.
template <class Item>
class HashIndex {
 public:
  void insert(std::uint64_t hash, Item& item) {
    if (_slots.size() < 2 * (_count + 1)) {
      _enlarge();
    }
    _put({.hash = hash, .item = &item});
    ++_count;
  }

  /// Takes out this very item, if it is in the index.
  void erase(std::uint64_t hash, const Item& item) {
    std::size_t gap = _count == 0 ? 0 : _startOf(hash);
    while (_count != 0 && _slots[gap].item != &item) {
      if (_slots[gap].item == nullptr) {
        return;
      }
      gap = _next(gap);
    }
    if (_count == 0) {
      return;
    }
    // What comes behind it and may stand in its place moves up, so that no search ends too early.
    for (std::size_t at = _next(gap); _slots[at].item != nullptr; at = _next(at)) {
      const std::size_t fromStart = (at - _startOf(_slots[at].hash)) & (_slots.size() - 1);
      const std::size_t fromGap = (at - gap) & (_slots.size() - 1);
      if (fromStart >= fromGap) {
        _slots[gap] = _slots[at];
        gap = at;
      }
    }
    _slots[gap] = {};
    if (--_count == 0 && _slots.size() > KEPT) {
      std::vector<Slot>().swap(_slots);
    }
  }

  /// Calls `take` with each item that has the hash, in no order.
  template <class Take>
  void forEach(std::uint64_t hash, const Take& take) const {
    if (_count != 0) {
      for (std::size_t at = _startOf(hash); _slots[at].item != nullptr; at = _next(at)) {
        if (_slots[at].hash == hash) {
          take(*_slots[at].item);
        }
      }
    }
  }

 private:
  struct Slot {
    std::uint64_t hash = 0;
    Item* item = nullptr;
  };

  static constexpr std::size_t SMALLEST = 16;
  /// What an empty table keeps for the next items.
  static constexpr std::size_t KEPT = 4096;

  // The number of slots is a power of two.
  [[nodiscard]] std::size_t _startOf(std::uint64_t hash) const {
    return static_cast<std::size_t>(hash) & (_slots.size() - 1);
  }
  [[nodiscard]] std::size_t _next(std::size_t at) const { return (at + 1) & (_slots.size() - 1); }

  void _put(const Slot& slot) {
    std::size_t at = _startOf(slot.hash);
    while (_slots[at].item != nullptr) {
      at = _next(at);
    }
    _slots[at] = slot;
  }

  void _enlarge() {
    std::vector<Slot> slots(_slots.empty() ? SMALLEST : 2 * _slots.size());
    slots.swap(_slots);
    for (const Slot& slot : slots) {
      if (slot.item != nullptr) {
        _put(slot);
      }
    }
  }

  std::vector<Slot> _slots;
  std::size_t _count = 0;
};

}  // namespace ravelin
