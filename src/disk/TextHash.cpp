#include "disk/TextHash.h"

// Most texts are short: calling the library would take longer than hashing them.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <functional>
#include <random>

namespace ravelin {

namespace {

using Secret = std::array<std::uint32_t, XXH3_SECRET_SIZE_MIN / sizeof(std::uint32_t) + 1>;

const Secret& secret() {
  static const Secret& made = *[] {
    auto* fresh = new Secret;
    std::random_device random;
    std::ranges::generate(*fresh, std::ref(random));
    return fresh;
  }();
  return made;
}

}  // namespace

std::size_t TextHash::operator()(std::string_view text) const noexcept {
  static const Secret& key = secret();
  return XXH3_64bits_withSecret(text.data(), text.size(), key.data(), sizeof(Secret));
}

}  // namespace ravelin
