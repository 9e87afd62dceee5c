#include "ShortcutEntry.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "ShareUrl.h"
#include "base/Utf8.h"

namespace ravelin::open {

namespace {

/// Takes what is before the separator, and the separator, from the front.
std::string_view take(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return taken;
}

constexpr std::string_view BLANKS = " \t\r\v\f";
/// A blank to some readers, and to others a letter of the key.
constexpr char VERTICAL_TAB = '\v';

/// Readers differ in which of two groups or keys of a name they take; here nothing that counts may
/// stand twice.
class Entry {
 public:
  /// Takes the next line; false when no shortcut has it.
  bool take(std::string_view line) {
    const std::size_t blanks = std::min(line.find_first_not_of(BLANKS), line.size());
    const std::string_view text = line.substr(blanks);
    if (text.empty() || text.starts_with('#')) {
      return true;
    }
    const bool isReadAlike = line.substr(0, blanks).find(VERTICAL_TAB) == std::string_view::npos;
    return text.starts_with('[') ? isReadAlike && _takeHeader(text) : _takeValue(text, isReadAlike);
  }

  [[nodiscard]] std::variant<std::string, Failure> url() const {
    if (_urls > 1) {
      return Failure{FAILED,
                     "it has more than one URL; delete the shortcut, as somebody has changed it"};
    }
    if (_types != 1 || _type != "Link" || !_url) {
      return foreign();
    }
    if (const auto failure = failureOfShareUrl(*_url)) {
      return *failure;
    }
    return std::string(*_url);
  }

 private:
  enum class Group { none, entry, other };

  bool _takeHeader(std::string_view header) {
    const bool isEntry = header == "[Desktop Entry]";
    const bool isFirst = _group == Group::none;
    _group = isEntry ? Group::entry : Group::other;
    return isEntry == isFirst;
  }

  bool _takeValue(std::string_view line, bool isReadAlike) {
    const std::size_t separator = line.find('=');
    if (_group == Group::none || separator == std::string_view::npos) {
      return false;
    }
    std::string_view key = line.substr(0, separator);
    isReadAlike = isReadAlike && key.find(VERTICAL_TAB) == std::string_view::npos;
    key = key.substr(0, key.find_last_not_of(BLANKS) + 1);
    const std::string_view value = line.substr(separator + 1);
    // Also in another group, or for a language: it could be meant for another reader.
    _urls += key == "URL" || key.starts_with("URL[") ? 1U : 0U;
    _types += _group == Group::entry && key == "Type" ? 1U : 0U;
    if (_group == Group::entry && key == "URL" && isReadAlike) {
      _url = value;
    } else if (_group == Group::entry && key == "Type" && isReadAlike) {
      _type = value;
    }
    return true;
  }

  Group _group = Group::none;
  std::string_view _type;
  std::size_t _types = 0;
  std::optional<std::string_view> _url;
  std::size_t _urls = 0;
};

}  // namespace

Failure foreign() {
  return {FAILED, "this is not a shortcut of Ravelin Disk; open it with another application"};
}

std::variant<std::string, Failure> urlInEntry(std::string_view entry) {
  if (entry.find('\0') != std::string_view::npos || !isUtf8(entry)) {
    return foreign();
  }
  Entry read;
  while (!entry.empty()) {
    if (!read.take(take(entry, '\n'))) {
      return foreign();
    }
  }
  return read.url();
}

}  // namespace ravelin::open
