#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "platform/PropertyList.h"
#include "platform/linux/PropertyListShape.h"

namespace {

using namespace ravelin::platform;
using ravelin::fuzz::require;

/// What was read, counted afresh.
struct Totals {
  std::size_t values = 0;
  std::size_t bytes = 0;
  std::size_t levels = 0;
};

void count(const PropertyListValue& value, std::size_t level, Totals& totals);

void count(const PropertyListDictionary& entries, std::size_t level, Totals& totals) {
  totals.levels = std::max(totals.levels, level);
  for (const auto& [key, value] : entries) {
    require(key.find('\0') == std::string::npos);
    ++totals.values;
    totals.bytes += key.size();
    count(value, level + 1, totals);
  }
}

void count(const PropertyListValue& value, std::size_t level, Totals& totals) {
  ++totals.values;
  if (const PropertyListDictionary* const entries = value.dictionary()) {
    count(*entries, level, totals);
  } else if (const PropertyListArray* const items = value.array()) {
    totals.levels = std::max(totals.levels, level);
    for (const PropertyListValue& item : *items) {
      count(item, level + 1, totals);
    }
  } else {
    totals.bytes += value.stringValue().value_or("").size();
    // For the sanitizers.
    static_cast<void>(value.boolValue());
    static_cast<void>(value.intValue());
  }
}

}  // namespace

/// Whatever the content, the process lives on, soon, and without a leak, which the sanitizer and
/// the limit of time see; and what is read keeps to the limits.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string content(data, data + size);
  const std::optional<PropertyListDictionary> read = dictionaryWithContents(content);
  if (read) {
    Totals totals;
    count(*read, 1, totals);
    require(totals.values < PROPERTY_LIST_VALUE_LIMIT);
    require(totals.levels <= PROPERTY_LIST_NESTING_LIMIT);
    // A UTF-16 text takes half as much again in UTF-8; a number is no text of the list's.
    constexpr std::size_t LONGEST_NUMBER = 24;
    require(totals.bytes <= PROPERTY_LIST_SIZE_LIMIT * 3 / 2 + totals.values * LONGEST_NUMBER);
  }

  const std::optional<std::string> sound = soundPropertyList(content);
  require(sound || !read);
  if (sound) {
    require(soundPropertyList(*sound) == sound);
    require(dictionaryWithContents(*sound).has_value() == read.has_value());
  }
  return 0;
}
