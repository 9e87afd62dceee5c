#include "base/PercentEscaping.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace ravelin {

namespace {

/// Whether the character with that number may stand in a URL.
constexpr auto MAY_STAND_IN_URL = [] {
  constexpr std::string_view STANDING =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!$&'()*+,-./:;=?@_~";
  std::array<bool, 256> may{};
  for (const char character : STANDING) {
    may.at(static_cast<unsigned char>(character)) = true;
  }
  return may;
}();

}  // namespace

Text addingPercentEscapes(std::string_view text) {
  static constexpr std::string_view DIGITS = "0123456789ABCDEF";
  std::string escaped;
  while (!text.empty()) {
    const auto* const other = std::ranges::find_if_not(text, [](char character) {
      return MAY_STAND_IN_URL[static_cast<unsigned char>(character)];  // NOLINT: any byte is inside
    });
    escaped.append(text.begin(), other);
    text.remove_prefix(static_cast<std::size_t>(other - text.begin()));
    if (!text.empty()) {
      const auto byte = static_cast<unsigned char>(text.front());
      if (byte >= 0x80) {
        return std::nullopt;
      }
      escaped += {'%', DIGITS[byte >> 4U], DIGITS[byte & 0xFU]};
      text.remove_prefix(1);
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
