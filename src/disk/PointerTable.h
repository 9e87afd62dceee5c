#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace ravelin {

/// A hash table of pointers to things that stay elsewhere. Its user hashes and compares them; what
/// is in the table takes one line of memory to find, as a rule, however much that is. The same or
/// an equal thing may be in it several times, but only a few times. One thread at a time.
template <class Item>
class PointerTable {
 public:
  /// Some item with that hash that is accepted, or null.
  template <class Accepts>
  [[nodiscard]] Item* find(std::size_t hash, const Accepts& accepts) const {
    if (_slots.empty()) {
      return nullptr;
    }
    for (std::size_t place = _home(hash); _slots[place].item != nullptr; place = _next(place)) {
      if (_slots[place].hash == hash && accepts(*_slots[place].item)) {
        return _slots[place].item;
      }
    }
    return nullptr;
  }

  void insert(std::size_t hash, Item& item) {
    // Half of the slots are always free, so that the next free one is near.
    if (_slots.size() < 2 * (_count + 1)) {
      _resize(_slots.empty() ? SMALLEST : 2 * _slots.size());
    }
    _put({hash, &item});
    ++_count;
  }

  /// Puts another item, with the same hash, in the place of this one, which is in the table.
  void replace(std::size_t hash, const Item& item, Item& by) {
    _slots[_find(hash, item)].item = &by;
  }

  /// Takes out this very item, once; it is in the table.
  void erase(std::size_t hash, const Item& item) {
    std::size_t free = _find(hash, item);
    _slots[free].item = nullptr;
    // An item that the freed slot has kept from its home moves nearer to it.
    for (std::size_t place = _next(free); _slots[place].item != nullptr; place = _next(place)) {
      if (_distance(_home(_slots[place].hash), place) >= _distance(free, place)) {
        std::swap(_slots[free], _slots[place]);
        free = place;
      }
    }
    // What a flood has needed is given back afterwards.
    if (--_count == 0 && _slots.size() > LARGEST_KEPT) {
      _resize(SMALLEST);
    }
  }

 private:
  static constexpr std::size_t SMALLEST = 16;
  static constexpr std::size_t LARGEST_KEPT = 4096;

  struct Slot {
    std::size_t hash = 0;
    Item* item = nullptr;
  };

  [[nodiscard]] std::size_t _home(std::size_t hash) const { return hash & (_slots.size() - 1); }
  [[nodiscard]] std::size_t _next(std::size_t place) const { return _home(place + 1); }
  [[nodiscard]] std::size_t _distance(std::size_t from, std::size_t to) const {
    return _home(to - from);
  }

  [[nodiscard]] std::size_t _find(std::size_t hash, const Item& item) const {
    std::size_t place = _home(hash);
    while (_slots[place].item != &item) {
      place = _next(place);
    }
    return place;
  }

  void _put(Slot slot) {
    std::size_t place = _home(slot.hash);
    while (_slots[place].item != nullptr) {
      place = _next(place);
    }
    _slots[place] = slot;
  }

  void _resize(std::size_t size) {
    for (const Slot& slot : std::exchange(_slots, std::vector<Slot>(size))) {
      if (slot.item != nullptr) {
        _put(slot);
      }
    }
  }

  std::vector<Slot> _slots;  // their number is a power of two
  std::size_t _count = 0;
};

}  // namespace ravelin
