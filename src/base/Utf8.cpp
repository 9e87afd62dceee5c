#include "base/Utf8.h"

#include <utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ravelin {

std::size_t characterLength(std::string_view bytes) {
  constexpr std::size_t LONGEST = 4;
  // The shortest beginning that is well-formed is one character.
  for (std::size_t length = 1; length <= std::min(bytes.size(), LONGEST); ++length) {
    if (isUtf8(bytes.substr(0, length))) {
      return length;
    }
  }
  return 0;
}

bool isUtf8(std::string_view bytes) {
  // Most texts are ASCII, which is passed over faster so.
  constexpr std::uint64_t HIGH_BITS = 0x8080808080808080U;
  std::uint64_t word = 0;
  while (bytes.size() >= sizeof word) {
    std::memcpy(&word, bytes.data(), sizeof word);
    if ((word & HIGH_BITS) != 0) {
      break;
    }
    bytes.remove_prefix(sizeof word);
  }
  return utf8::is_valid(bytes.begin(), bytes.end());
}

std::string_view beginningOf(std::string_view bytes, std::size_t limit) {
  if (bytes.size() <= limit) {
    return bytes;
  }
  // A character that the cut divides begins at most three bytes before it.
  for (std::size_t start = limit; start + 3 >= limit; --start) {
    if (characterLength(bytes.substr(start)) > limit - start) {
      return bytes.substr(0, start);
    }
    if (start == 0) {
      break;
    }
  }
  return bytes.substr(0, limit);
}

}  // namespace ravelin
