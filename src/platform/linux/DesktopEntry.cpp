#include "platform/linux/DesktopEntry.h"

#include <cstddef>

namespace ravelin::platform {

namespace {

std::string escaped(std::string_view value) {
  std::string result;
  result.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    switch (value[i]) {
      case '\\':
        result += "\\\\";
        break;
      case '\n':
        result += "\\n";
        break;
      case '\r':
        result += "\\r";
        break;
      case '\t':
        result += "\\t";
        break;
      case ' ':
        // Readers strip blanks at the ends of a value, and only there.
        result += i == 0 || i + 1 == value.size() ? "\\s" : " ";
        break;
      default:
        result += value[i];
    }
  }
  return result;
}

}  // namespace

std::string DesktopEntry::text() const {
  return std::string(MAGIC) +
         "\n"
         "[Desktop Entry]\n"
         "Version=1.0\n"
         "Type=Link\n"
         "Name=" +
         escaped(name) +
         "\n"
         "URL=" +
         escaped(url) +
         "\n"
         "Icon=ravelin-disk\n";
}

}  // namespace ravelin::platform
