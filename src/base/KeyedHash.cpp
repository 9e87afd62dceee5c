#include "base/KeyedHash.h"

#include <random>

namespace ravelin {

const KeyedHash::Key& KeyedHash::_keyOfProcess() {
  static const Key key = [] {
    constexpr unsigned HALF = 32;
    std::random_device random;
    Key drawn{};
    for (std::uint64_t& number : drawn) {
      number = std::uint64_t{random()} << HALF;
      number |= random();
    }
    return drawn;
  }();
  return key;
}

}  // namespace ravelin
