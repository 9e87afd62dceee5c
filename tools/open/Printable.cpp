#include "Printable.h"

#include <array>

#include "platform/linux/GioTypes.h"

namespace ravelin::open {

std::string printable(const std::string& text) {
  constexpr gunichar REPLACEMENT = 0xFFFD;
  const String valid(g_utf8_make_valid(text.c_str(), -1));
  std::string result;
  for (const char* rest = valid.get(); *rest != '\0'; rest = g_utf8_next_char(rest)) {
    const gunichar character = g_utf8_get_char(rest);
    std::array<char, 6> bytes{};
    const int count = g_unichar_to_utf8(g_unichar_isprint(character) != 0 ? character : REPLACEMENT,
                                        bytes.data());
    result.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return result;
}

}  // namespace ravelin::open
