#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ravelin::platform {

class PropertyListValue;
using PropertyListArray = std::vector<PropertyListValue>;
using PropertyListDictionary = std::map<std::string, PropertyListValue, std::less<>>;

/// One value of a property list. What is neither of these types (a date, data) is std::monostate.
class PropertyListValue {
 public:
  using Variant = std::variant<std::monostate, bool, std::int64_t, double, std::string,
                               PropertyListArray, PropertyListDictionary>;

  PropertyListValue() = default;
  PropertyListValue(Variant value);  // NOLINT(google-explicit-constructor): a value is its content

  /// The value as a 32-bit integer: numbers lose their fraction and wrap or clamp into range, truth
  /// values are 1 and 0, a text gives its leading digits after blanks, with an optional sign,
  /// clamped into range, or 0 when there are none; anything else is 0.
  [[nodiscard]] std::int32_t intValue() const;

  /// The value as a truth: numbers are true unless 0; a text is true when, after blanks, a sign and
  /// zeros, it begins with Y, y, T, t or a digit from 1 to 9; anything else is false.
  [[nodiscard]] bool boolValue() const;

  /// The text, or a number or truth written as text; null for anything else.
  [[nodiscard]] std::optional<std::string> stringValue() const;

  /// The value as it stands in the list.
  [[nodiscard]] const Variant& content() const { return _value; }

  /// The array or dictionary, or null when the value is none.
  [[nodiscard]] const PropertyListArray* array() const;
  [[nodiscard]] const PropertyListDictionary* dictionary() const;

 private:
  Variant _value;
};

/// Reads a property list file, XML or binary, whose top level is a dictionary. Null when the file
/// cannot be read, is no property list, or holds something else. Any thread.
[[nodiscard]] std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(
    const std::string& path);

/// The same of what would be the file's content. Whatever it is, it neither harms the process nor
/// takes more than a moment.
[[nodiscard]] std::optional<PropertyListDictionary> dictionaryWithContents(
    std::string_view content);

}  // namespace ravelin::platform
