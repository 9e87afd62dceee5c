#include "platform/Utf8.h"

#include <cstddef>

namespace ravelin::platform {

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

}  // namespace

bool isUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    Sequence sequence{};
    const auto lead = static_cast<unsigned char>(bytes[at++]);
    if (!sequenceOf(lead, sequence) || bytes.size() - at < sequence.following) {
      return false;
    }
    for (std::size_t index = 0; index < sequence.following; ++index) {
      const auto byte = static_cast<unsigned char>(bytes[at++]);
      const bool isFirst = index == 0;
      if (byte < (isFirst ? sequence.low : 0x80) || byte > (isFirst ? sequence.high : 0xBF)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace ravelin::platform
