#include "base/AsciiCase.h"

#include <algorithm>

namespace ravelin {

namespace {

char lowered(char character) {
  constexpr char DISTANCE = 'a' - 'A';
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + DISTANCE) : character;
}

}  // namespace

bool isAsciiLetter(char character) {
  const char letter = lowered(character);
  return letter >= 'a' && letter <= 'z';
}

bool equalButForCase(std::string_view one, std::string_view other) {
  return std::ranges::equal(one, other, {}, lowered, lowered);
}

}  // namespace ravelin
