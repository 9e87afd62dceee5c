#include "base/PercentEscaping.h"

#include <charconv>
#include <cstddef>
#include <system_error>

namespace ravelin {

namespace {

bool mayStandInUrl(unsigned char character) {
  static constexpr std::string_view PUNCTUATION = "!$&'()*+,-./:;=?@_~";
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         (character >= '0' && character <= '9') ||
         PUNCTUATION.find(static_cast<char>(character)) != std::string_view::npos;
}

}  // namespace

Text addingPercentEscapes(std::string_view text) {
  static constexpr std::string_view DIGITS = "0123456789ABCDEF";
  std::string escaped;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x80) {
      return std::nullopt;
    }
    if (mayStandInUrl(byte)) {
      escaped += character;
    } else {
      escaped += {'%', DIGITS[byte >> 4U], DIGITS[byte & 0xFU]};
    }
  }
  return escaped;
}

std::string removingPercentEscapes(std::string_view text) {
  constexpr std::size_t DIGIT_COUNT = 2;
  constexpr int BASE = 16;
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    unsigned char byte = 0;
    const std::string_view digits = text.substr(at + 1, DIGIT_COUNT);
    const char* const begin = digits.data();
    const char* const end = begin + digits.size();
    const auto [rest, error] = std::from_chars(begin, end, byte, BASE);
    const bool isEscape =
        text[at] == '%' && digits.size() == DIGIT_COUNT && error == std::errc() && rest == end;
    plain += isEscape ? static_cast<char>(byte) : text[at];
    at += isEscape ? DIGIT_COUNT : 0;
  }
  return plain;
}

}  // namespace ravelin
