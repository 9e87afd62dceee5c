#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace ravelin {

/// A hash table of small values, such as pointers, which its user hashes and compares. To find one
/// takes one look into memory, as a rule, however many there are. A default value is false and
/// stands for none; the values in the table are true. Several may have the same hash, but only a
/// few. One thread at a time.
template <class Value>
class HashTable {
 public:
  /// Some value with that hash that is accepted, or null; it lasts until the next change.
  template <class Accepts>
  [[nodiscard]] Value* find(std::size_t hash, const Accepts& accepts) {
    const std::size_t place = _find(hash, accepts);
    return place == NOWHERE ? nullptr : &_slots[place].value;
  }
  template <class Accepts>
  [[nodiscard]] const Value* find(std::size_t hash, const Accepts& accepts) const {
    const std::size_t place = _find(hash, accepts);
    return place == NOWHERE ? nullptr : &_slots[place].value;
  }

  void insert(std::size_t hash, Value value) {
    // With fewer free slots the next one is far away, with more of them the table is too large for
    // the processor's cache.
    if (3 * _slots.size() < 4 * (_count + 1)) {
      _resize(_slots.empty() ? SMALLEST : 2 * _slots.size());
    }
    _put({hash, std::move(value)});
    ++_count;
  }

  /// Takes out what `find` would find.
  template <class Accepts>
  void erase(std::size_t hash, const Accepts& accepts) {
    std::size_t free = _find(hash, accepts);
    if (free == NOWHERE) {
      return;
    }
    _slots[free] = Slot();
    // A value that the freed slot has kept from its home moves nearer to it.
    for (std::size_t place = _next(free); _slots[place].value; place = _next(place)) {
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
  static constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

  struct Slot {
    std::size_t hash = 0;
    Value value{};
  };

  [[nodiscard]] std::size_t _home(std::size_t hash) const { return hash & (_slots.size() - 1); }
  [[nodiscard]] std::size_t _next(std::size_t place) const { return _home(place + 1); }
  [[nodiscard]] std::size_t _distance(std::size_t from, std::size_t to) const {
    return _home(to - from);
  }

  template <class Accepts>
  [[nodiscard]] std::size_t _find(std::size_t hash, const Accepts& accepts) const {
    if (_slots.empty()) {
      return NOWHERE;
    }
    for (std::size_t place = _home(hash); _slots[place].value; place = _next(place)) {
      if (_slots[place].hash == hash && accepts(_slots[place].value)) {
        return place;
      }
    }
    return NOWHERE;
  }

  void _put(Slot slot) {
    std::size_t place = _home(slot.hash);
    while (_slots[place].value) {
      place = _next(place);
    }
    _slots[place] = std::move(slot);
  }

  void _resize(std::size_t size) {
    for (Slot& slot : std::exchange(_slots, std::vector<Slot>(size))) {
      if (slot.value) {
        _put(std::move(slot));
      }
    }
  }

  std::vector<Slot> _slots;  // their number is a power of two
  std::size_t _count = 0;
};

}  // namespace ravelin
