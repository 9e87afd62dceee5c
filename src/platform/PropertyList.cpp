#include "platform/PropertyList.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

namespace ravelin::platform {

namespace {

constexpr std::string_view BLANKS = " \t\n\v\f\r";
constexpr std::string_view DIGITS = "0123456789";

template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

constexpr std::int64_t clamped(std::int64_t number) {
  return std::clamp<std::int64_t>(number, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max());
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
  return text;
}

/// Takes the sign off the text, if it has one; true when that is a minus.
bool takeSign(std::string_view& text) {
  const bool isNegative = text.starts_with('-');
  text.remove_prefix(isNegative || text.starts_with('+') ? 1 : 0);
  return isNegative;
}

std::int64_t integerFromText(std::string_view text) {
  constexpr std::int64_t BASE = 10;
  text = withoutLeadingBlanks(text);
  const bool isNegative = takeSign(text);
  std::int64_t number = 0;
  for (const char character : text.substr(0, text.find_first_not_of(DIGITS))) {
    const std::int64_t digit = character - '0';
    number = clamped(number * BASE + (isNegative ? -digit : digit));
  }
  return number;
}

bool truthFromText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  takeSign(text);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() &&
         std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

std::int64_t integerFromReal(double number) {
  if (std::isnan(number)) {
    return 0;
  }
  return static_cast<std::int64_t>(std::clamp<double>(
      number, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

std::string textFromReal(double number) {
  if (std::isnan(number)) {
    return "nan";
  }
  constexpr int SIGNIFICANT_DIGITS = 16;
  // std::to_chars would need no locale to be plain, which it is here, but is too new for the oldest
  // macOS where the number is a double.
  std::array<char, 32> buffer{};  // sign, point, digits, exponent and end take 24 at the most
  const int length =
      std::snprintf(buffer.data(), buffer.size(), "%.*g", SIGNIFICANT_DIGITS, number);
  return {buffer.data(), static_cast<std::size_t>(length)};
}

}  // namespace

PropertyListValue::PropertyListValue(Variant value) : _value(std::move(value)) {}

std::int32_t PropertyListValue::intValue() const {
  // Narrowing to 32 bits keeps the low ones.
  return static_cast<std::int32_t>(
      std::visit(Overloaded{[](bool truth) { return std::int64_t{truth ? 1 : 0}; },
                            [](std::int64_t number) { return number; },
                            [](double number) { return integerFromReal(number); },
                            [](const std::string& text) { return integerFromText(text); },
                            [](const auto&) { return std::int64_t{0}; }},
                 _value));
}

bool PropertyListValue::boolValue() const {
  return std::visit(
      Overloaded{[](bool truth) { return truth; }, [](std::int64_t number) { return number != 0; },
                 [](double number) { return number != 0; },
                 [](const std::string& text) { return truthFromText(text); },
                 [](const auto&) { return false; }},
      _value);
}

std::optional<std::string> PropertyListValue::stringValue() const {
  using Answer = std::optional<std::string>;
  return std::visit(Overloaded{[](bool truth) -> Answer { return truth ? "1" : "0"; },
                               [](std::int64_t number) -> Answer { return std::to_string(number); },
                               [](double number) -> Answer { return textFromReal(number); },
                               [](const std::string& text) -> Answer { return text; },
                               [](const auto&) -> Answer { return std::nullopt; }},
                    _value);
}

const PropertyListArray* PropertyListValue::array() const {
  return std::get_if<PropertyListArray>(&_value);
}

const PropertyListDictionary* PropertyListValue::dictionary() const {
  return std::get_if<PropertyListDictionary>(&_value);
}

}  // namespace ravelin::platform
