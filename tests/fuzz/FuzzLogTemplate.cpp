#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/LogLine.h"
#include "base/LogTemplate.h"
#include "base/Utf8.h"
#include "base/Visible.h"
#include "fuzz/Require.h"

namespace {

using namespace ravelin;
using ravelin::fuzz::require;

constexpr std::size_t WIDEST = 512;

/// Reads one character after the other.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : _text(text) {}

  [[nodiscard]] std::string_view rest() const { return _text; }

  /// The next character, which is one of these, or null and it stays.
  std::optional<char> take(std::string_view any) {
    if (_text.empty() || any.find(_text.front()) == std::string_view::npos) {
      return std::nullopt;
    }
    const char taken = _text.front();
    _text.remove_prefix(1);
    return taken;
  }

  std::string takeAll(std::string_view any) {
    std::string taken;
    while (const auto character = take(any)) {
      taken += *character;
    }
    return taken;
  }

  /// "3$", but no number that begins with 0.
  void passArgumentNumber() {
    Cursor ahead = *this;
    if (ahead.take("123456789")) {
      ahead.takeAll("0123456789");
      if (ahead.take("$")) {
        *this = ahead;
      }
    }
  }

  /// A width or a precision; an argument for it is absent, and so it is 0.
  std::size_t takeField() {
    if (take("*")) {
      passArgumentNumber();
      return 0;
    }
    std::size_t value = 0;
    for (const char digit : takeAll("0123456789")) {
      value = std::min(value * 10 + static_cast<std::size_t>(digit - '0'), WIDEST);
    }
    return value;
  }

 private:
  std::string_view _text;
};

/// What the C library makes of the format and the value.
template <class Value>
std::string printed(const std::string& format, Value value) {
  std::string result(2 * WIDEST, '\0');
  const int length = std::snprintf(result.data(), result.size(), format.c_str(), value);
  require(length >= 0 && static_cast<std::size_t>(length) < result.size());
  result.resize(static_cast<std::size_t>(length));
  return result;
}

struct Form {
  std::string flags;
  std::size_t width = 0;
  std::optional<std::size_t> precision;

  [[nodiscard]] bool has(char flag) const { return flags.find(flag) != std::string::npos; }

  /// The format in C, with those of the flags that have a meaning for the letter.
  [[nodiscard]] std::string format(std::string_view meaningful, const std::string& letter) const {
    std::string text = "%";
    for (const char flag : meaningful) {
      text.append(has(flag) ? 1 : 0, flag);
    }
    text += std::to_string(width);
    if (width == 0) {
      text.pop_back();
    }
    if (precision) {
      text += "." + std::to_string(*precision);
    }
    return text + letter;
  }
};

std::string pointer(const Form& form) {
  Form digits{.flags = "0", .width = 0, .precision = form.precision};
  if (form.has('0') && !form.has('-') && !form.precision) {
    digits.width = form.width - std::min<std::size_t>(form.width, 2);
  }
  const std::string whole = "0x" + printed(digits.format("0", "u"), 0U);
  const Form field{.flags = form.flags, .width = form.width, .precision = std::nullopt};
  return printed(field.format("-", "s"), whole.c_str());
}

/// A conversion of an absent argument: 0, no character or the text "(null)".
std::string converted(const Form& form, char letter) {
  switch (letter) {
    case '%':
      return "%";
    case 'n':
      return "";
    case 's':
    case 'S':
    case '@':
      return printed(form.format("-", "s"), "(null)");
    case 'm':
      return printed(form.format("-", "s"), std::strerror(0));
    case 'c':
    case 'C':
      return printed(form.format("-", "s"), "");
    case 'p':
      return pointer(form);
    case 'd':
    case 'i':
    case 'D':
      return printed(form.format("-+ 0", "d"), 0);
    case 'o':
    case 'O':
      return printed(form.format("-#0", "o"), 0U);
    case 'u':
    case 'U':
    case 'x':
    case 'X':
    case 'b':
    case 'B':
      return printed(form.format("-0", "u"), 0U);
    default:
      return printed(form.format("-+ #0", std::string(1, letter)), 0.0);
  }
}

/// The text at the percent sign's place, and the cursor behind it; null when it is no conversion.
std::optional<std::string> takeConversion(Cursor& cursor) {
  Cursor ahead = cursor;
  ahead.take("%");
  ahead.passArgumentNumber();
  Form form;
  form.flags = ahead.takeAll("-+ #0'");
  form.width = ahead.takeField();
  if (ahead.take(".")) {
    form.precision = ahead.takeField();
  }
  if (const auto length = ahead.take("hlqLjzt"); length == 'h' || length == 'l') {
    ahead.take(std::string_view(&*length, 1));
  }
  const auto letter = ahead.take("diuoxXbBDOUeEfFgGaAsS@mcCpn%");
  if (!letter) {
    return std::nullopt;
  }
  cursor = ahead;
  return converted(form, *letter);
}

std::string expandedPlainly(std::string_view text) {
  std::string result;
  Cursor cursor(text.substr(0, text.find('\0')));
  while (!cursor.rest().empty()) {
    if (cursor.rest().front() == '%') {
      if (const auto conversion = takeConversion(cursor)) {
        result += *conversion;
        continue;
      }
    }
    const char literal = cursor.rest().front();
    cursor.take(std::string_view(&literal, 1));
    result += literal;
  }
  return result;
}

/// The text that is shown like this.
std::string hidden(std::string_view shown) {
  std::string text;
  for (std::size_t at = 0; at < shown.size(); ++at) {
    if (shown[at] != '\\') {
      text += shown[at];
      continue;
    }
    ++at;
    require(at < shown.size());
    switch (shown[at]) {
      case '\\':
        text += '\\';
        break;
      case 'n':
        text += '\n';
        break;
      case 'r':
        text += '\r';
        break;
      case 't':
        text += '\t';
        break;
      default:
        require(shown[at] == 'x' && at + 2 < shown.size());
        text += static_cast<char>(std::stoi(std::string(shown.substr(at + 1, 2)), nullptr, 16));
        at += 2;
        break;
    }
  }
  return text;
}

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

void checkShown(const std::string& line) {
  // A line in the log has no control character, and its further lines begin with tabs.
  const std::string shown = visibleLines(line);
  for (std::size_t at = 0; at < shown.size(); ++at) {
    const auto byte = static_cast<unsigned char>(shown[at]);
    require(byte >= 0x20 || byte == '\n' || (byte == '\t' && at > 0 && shown[at - 1] == '\n'));
    require(byte != '\n' || (at + 1 < shown.size() && shown[at + 1] == '\t'));
    require(byte != 0x7F);
  }
  require(isUtf8(shown));
  require(visibleText(line) == replaced(shown, "\n\t", "\n"));
  require(visibleLine(line) == replaced(shown, "\n\t", "\\n"));
  const std::string ascii = visible(line);
  require(std::ranges::all_of(ascii, [](char byte) { return byte >= ' ' && byte <= '~'; }));
  require(hidden(ascii) == line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const std::string plain = expandedPlainly(text);
  const std::string expanded = expandLogTemplate(text);
  require(expanded == plain.substr(0, LOG_TEMPLATE_LIMIT));
  require(expandLogTemplate(text, size) == plain.substr(0, size));

  // A text whose percent signs are doubled is data.
  const std::string beforeNul = text.substr(0, text.find('\0'));
  require(expandLogTemplate(replaced(beforeNul, "%", "%%")) ==
          beforeNul.substr(0, LOG_TEMPLATE_LIMIT));

  // A line is as long as it may be, and all that there was where it is not cut.
  const std::string line = cutLogLine(expandLogTemplate(text, LOG_LINE_LIMIT + 1));
  require(line.size() <= LOG_LINE_LIMIT);
  if (plain.size() <= LOG_LINE_LIMIT) {
    require(line == plain);
  } else {
    // What is cut off is at most the mark's room and a part of a character.
    require(line.ends_with(LOG_LINE_CUT) && line.size() + 3 >= LOG_LINE_LIMIT);
    require(plain.starts_with(line.substr(0, line.size() - LOG_LINE_CUT.size())));
  }
  checkShown(line);
  return 0;
}
