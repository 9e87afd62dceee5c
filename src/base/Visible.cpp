#include "base/Visible.h"

#include <utf8.h>

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
  // U+0080 to U+009F are control characters, too.
  constexpr char32_t FIRST_READABLE = 0xA0;
  const std::size_t length = characterLength(text);
  return length >= 2 && utf8::unchecked::peek_next(text.begin()) >= FIRST_READABLE ? length : 0;
}

/// The text in UTF-8, with what is to stand for a line feed.
std::string readable(std::string_view text, std::string_view lineFeed) {
  std::string result;
  while (!text.empty()) {
    const std::size_t wide = wideLength(text);
    if (wide > 0) {
      result += text.substr(0, wide);
    } else if (text.front() == '\n') {
      result += lineFeed;
    } else if (text.front() == '\\') {
      result += '\\';
    } else {
      append(result, text.front());
    }
    text.remove_prefix(wide > 0 ? wide : 1);
  }
  return result;
}

}  // namespace

std::string visible(std::string_view text) {
  std::string result;
  for (const char character : text) {
    append(result, character);
  }
  return result;
}

std::string visibleLine(std::string_view text) { return readable(text, "\\n"); }

std::string visibleLines(std::string_view text) { return readable(text, "\n\t"); }

std::string visibleText(std::string_view text) { return readable(text, "\n"); }

}  // namespace ravelin
