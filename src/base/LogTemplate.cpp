#include "base/LogTemplate.h"

#include <algorithm>
#include <optional>
#include <system_error>

namespace ravelin {
namespace {

/// The greatest width and precision, so that a few bytes of a datagram give a short line.
constexpr std::size_t FIELD_LIMIT = 512;

constexpr std::string_view ABSENT_TEXT = "(null)";

struct Conversion {
  bool left = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  std::size_t width = 0;
  std::optional<std::size_t> precision;
  char letter = 0;
};

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Reads one conversion, beginning after its percent sign.
class ConversionReader final {
 public:
  explicit ConversionReader(std::string_view text) : _text(text) {}

  /// How much has been read, whether it was a conversion or not.
  [[nodiscard]] std::size_t position() const { return _position; }

  /// The conversion, or null when the text holds none here.
  std::optional<Conversion> read() {
    Conversion conversion;
    _skipArgumentNumber();
    while (_readFlag(conversion)) {
    }
    conversion.width = _readField();
    if (_skip('.')) {
      conversion.precision = _readField();
    }
    _skipLength();
    if (_position == _text.size()) {
      return std::nullopt;
    }
    conversion.letter = _text[_position++];
    if (LETTERS.find(conversion.letter) == std::string_view::npos) {
      return std::nullopt;
    }
    return conversion;
  }

 private:
  static constexpr std::string_view LETTERS = "diuoxXbBDOUeEfFgGaAsS@mcCpn%";

  [[nodiscard]] char _next() const { return _position < _text.size() ? _text[_position] : '\0'; }

  bool _skip(char character) {
    if (_next() != character) {
      return false;
    }
    ++_position;
    return true;
  }

  void _skipArgumentNumber() {
    std::size_t end = _position;
    while (end < _text.size() && isDigit(_text[end])) {
      ++end;
    }
    if (end > _position && end < _text.size() && _text[end] == '$' && _next() != '0') {
      _position = end + 1;
    }
  }

  bool _readFlag(Conversion& conversion) {
    switch (_next()) {
      case '-':
        conversion.left = true;
        break;
      case '+':
        conversion.plus = true;
        break;
      case ' ':
        conversion.blank = true;
        break;
      case '#':
        conversion.alternate = true;
        break;
      case '0':
        conversion.zero = true;
        break;
      case '\'':  // Groups thousands, of which 0 has none.
        break;
      default:
        return false;
    }
    ++_position;
    return true;
  }

  std::size_t _readField() {
    if (_skip('*')) {
      _skipArgumentNumber();
      return 0;
    }
    std::size_t value = 0;
    for (; isDigit(_next()); ++_position) {
      value = std::min(value * 10 + static_cast<std::size_t>(_next() - '0'), FIELD_LIMIT);
    }
    return value;
  }

  void _skipLength() {
    const char length = _next();
    if (length == '\0' || std::string_view("hlqLjzt").find(length) == std::string_view::npos) {
      return;
    }
    ++_position;
    if (length == 'h' || length == 'l') {
      _skip(length);
    }
  }

  std::string_view _text;
  std::size_t _position = 0;
};

void appendPadded(std::string& result, const Conversion& conversion, std::string_view text) {
  const std::size_t padding = conversion.width - std::min(conversion.width, text.size());
  if (!conversion.left) {
    result.append(padding, ' ');
  }
  result += text;
  if (conversion.left) {
    result.append(padding, ' ');
  }
}

void appendText(std::string& result, const Conversion& conversion, std::string_view text) {
  appendPadded(result, conversion, text.substr(0, conversion.precision.value_or(text.size())));
}

void appendNumber(std::string& result, const Conversion& conversion, bool mayZeroPad,
                  std::string prefix, std::string_view digits) {
  const std::size_t length = prefix.size() + digits.size();
  if (conversion.zero && !conversion.left && mayZeroPad && length < conversion.width) {
    prefix.append(conversion.width - length, '0');
  }
  appendPadded(result, conversion, prefix.append(digits));
}

std::string sign(const Conversion& conversion) {
  if (conversion.plus) {
    return "+";
  }
  return conversion.blank ? " " : "";
}

void appendInteger(std::string& result, const Conversion& conversion, std::string prefix) {
  std::string digits(conversion.precision.value_or(1), '0');
  if (digits.empty() && conversion.alternate &&
      (conversion.letter == 'o' || conversion.letter == 'O')) {
    digits += '0';
  }
  appendNumber(result, conversion, !conversion.precision.has_value(), std::move(prefix), digits);
}

/// What stands behind the first digit: the point where there is one, and the decimals.
std::string fraction(const Conversion& conversion, std::size_t decimals) {
  if (decimals == 0) {
    return conversion.alternate ? "." : "";
  }
  return std::string(".").append(decimals, '0');
}

void appendFloat(std::string& result, const Conversion& conversion) {
  std::string prefix = sign(conversion);
  std::string digits = "0";
  switch (conversion.letter) {
    case 'e':
    case 'E':
      digits += fraction(conversion, conversion.precision.value_or(6));
      digits += conversion.letter;
      digits += "+00";
      break;
    case 'g':
    case 'G':
      if (conversion.alternate) {
        const std::size_t significant = std::max<std::size_t>(conversion.precision.value_or(6), 1);
        digits += fraction(conversion, significant - 1);
      }
      break;
    case 'a':
      prefix += "0x";
      digits += fraction(conversion, conversion.precision.value_or(0)) + "p+0";
      break;
    case 'A':
      prefix += "0X";
      digits += fraction(conversion, conversion.precision.value_or(0)) + "P+0";
      break;
    default:
      digits += fraction(conversion, conversion.precision.value_or(6));
      break;
  }
  appendNumber(result, conversion, true, std::move(prefix), digits);
}

void append(std::string& result, const Conversion& conversion) {
  switch (conversion.letter) {
    case '%':
      result += '%';
      break;
    case 'n':
      break;
    case 's':
    case 'S':
    case '@':
      appendText(result, conversion, ABSENT_TEXT);
      break;
    case 'm':
      appendText(result, conversion, std::generic_category().message(0));
      break;
    case 'c':
    case 'C':
      appendPadded(result, conversion, "");
      break;
    case 'p':
      appendInteger(result, conversion, "0x");
      break;
    case 'd':
    case 'i':
    case 'D':
      appendInteger(result, conversion, sign(conversion));
      break;
    case 'u':
    case 'U':
    case 'o':
    case 'O':
    case 'x':
    case 'X':
    case 'b':
    case 'B':
      appendInteger(result, conversion, "");
      break;
    default:
      appendFloat(result, conversion);
      break;
  }
}

}  // namespace

std::string expandLogTemplate(std::string_view text, std::size_t limit) {
  text = text.substr(0, text.find('\0'));
  std::string result;
  while (!text.empty() && result.size() < limit) {
    const std::size_t literal = std::min(text.find('%'), text.size());
    result += text.substr(0, std::min(literal, limit - result.size()));
    text.remove_prefix(literal);
    if (text.empty()) {
      break;
    }
    ConversionReader reader(text.substr(1));
    const std::optional<Conversion> conversion = reader.read();
    const std::size_t length = 1 + reader.position();
    if (conversion) {
      append(result, *conversion);
    } else {
      result += text.substr(0, std::min(length, limit));
    }
    text.remove_prefix(length);
  }
  result.resize(std::min(result.size(), limit));
  return result;
}

}  // namespace ravelin
