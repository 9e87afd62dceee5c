#include "Visible.h"

namespace ravelin::announce {

std::string visible(std::string_view text) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string result;
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '\\') {
      result += "\\\\";
    } else if (character == '\n') {
      result += "\\n";
    } else if (character == '\r') {
      result += "\\r";
    } else if (character == '\t') {
      result += "\\t";
    } else if (code < 0x20 || code > 0x7e) {
      result += {'\\', 'x', DIGITS[code / 16U], DIGITS[code % 16U]};
    } else {
      result += character;
    }
  }
  return result;
}

}  // namespace ravelin::announce
