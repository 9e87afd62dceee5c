#include "base/Visible.h"

#include <cstddef>

#include "base/Utf8.h"

namespace ravelin {

namespace {

bool isPrintableAscii(char character) { return character >= 0x20 && character < 0x7F; }

void append(std::string& result, char character) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  const auto code = static_cast<unsigned char>(character);
  if (character == '\\') {
    result += "\\\\";
  } else if (character == '\n') {
    result += "\\n";
  } else if (character == '\r') {
    result += "\\r";
  } else if (character == '\t') {
    result += "\\t";
  } else if (isPrintableAscii(character)) {
    result += character;
  } else {
    result += {'\\', 'x', DIGITS[code / 16U], DIGITS[code % 16U]};
  }
}

/// The length, in bytes, of the readable non-ASCII character at the beginning, or 0.
std::size_t wideLength(std::string_view text) {
  const std::size_t length = characterLength(text);
  if (length < 2) {
    return 0;
  }
  // U+0080 to U+009F are control characters, too.
  const bool isControl = text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0;
  return isControl ? 0 : length;
}

}  // namespace

std::string visible(std::string_view text) {
  std::string result;
  for (const char character : text) {
    append(result, character);
  }
  return result;
}

std::string visibleLines(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t wide = wideLength(text);
    if (wide > 0) {
      result += text.substr(0, wide);
    } else if (text.front() == '\n') {
      result += "\n\t";
    } else if (text.front() == '\\') {
      result += '\\';
    } else {
      append(result, text.front());
    }
    text.remove_prefix(wide > 0 ? wide : 1);
  }
  return result;
}

}  // namespace ravelin
