#include "base/Utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ravelin {

namespace {

/// The bytes that follow the first one, and the range in which the first of those must lie.
struct Sequence {
  std::size_t following;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
};

bool sequenceOf(unsigned char first, Sequence& sequence) {
  if (first < 0x80) {
    sequence = {0};
  } else if (first >= 0xC2 && first <= 0xDF) {
    sequence = {1};
  } else if (first >= 0xE0 && first <= 0xEF) {
    sequence = {2};
  } else if (first >= 0xF0 && first <= 0xF4) {
    sequence = {3};
  } else {
    return false;
  }
  switch (first) {
    case 0xE0:
      sequence.low = 0xA0;
      break;  // shorter forms exist below
    case 0xED:
      sequence.high = 0x9F;
      break;  // surrogates lie above
    case 0xF0:
      sequence.low = 0x90;
      break;  // shorter forms exist below
    case 0xF4:
      sequence.high = 0x8F;
      break;  // nothing lies above
    default:
      break;
  }
  return true;
}

/// How many bytes at the beginning are ASCII, counted in whole words.
std::size_t asciiLength(std::string_view bytes) {
  constexpr std::uint64_t HIGH_BITS = 0x8080808080808080;
  std::size_t length = 0;
  std::uint64_t word = 0;
  while (bytes.size() - length >= sizeof word) {
    std::memcpy(&word, bytes.data() + length, sizeof word);
    if ((word & HIGH_BITS) != 0) {
      break;
    }
    length += sizeof word;
  }
  return length;
}

}  // namespace

std::size_t characterLength(std::string_view bytes) {
  Sequence sequence{};
  if (bytes.empty() || !sequenceOf(static_cast<unsigned char>(bytes.front()), sequence) ||
      bytes.size() <= sequence.following) {
    return 0;
  }
  for (std::size_t at = 1; at <= sequence.following; ++at) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (byte < (at == 1 ? sequence.low : 0x80) || byte > (at == 1 ? sequence.high : 0xBF)) {
      return 0;
    }
  }
  return 1 + sequence.following;
}

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t ascii = asciiLength(bytes);
    const std::size_t length = ascii == 0 ? characterLength(bytes) : ascii;
    if (length == 0) {
      return false;
    }
    bytes.remove_prefix(length);
  }
  return true;
}

std::string_view beginningOf(std::string_view bytes, std::size_t limit) {
  if (bytes.size() <= limit) {
    return bytes;
  }
  // Where the cut is inside a character, that begins at most three bytes before it.
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
