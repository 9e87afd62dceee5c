#include "platform/linux/shortcut/DesktopEntry.h"

#include <algorithm>
#include <cstddef>

namespace ravelin::platform {

namespace {

/// With the line end before it, so that it is found as a key only.
constexpr const char* ICON_KEY = "\nIcon=";

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

bool DesktopEntry::isShortcut(std::string_view text) {
  return text.substr(0, text.find('\n')) == MAGIC;
}

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
         escaped(url) + ICON_KEY + "ravelin-disk\n";
}

Text DesktopEntry::withIcon(std::string_view text, std::string_view icon) {
  const std::size_t key = text.rfind(ICON_KEY);
  if (!isShortcut(text) || key == std::string_view::npos) {
    return std::nullopt;
  }
  const std::size_t end = std::min(text.find('\n', key + 1), text.size());
  return std::string(text.substr(0, key)) + ICON_KEY + escaped(icon) +
         std::string(text.substr(end));
}

}  // namespace ravelin::platform
