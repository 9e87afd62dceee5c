#pragma once

#include <cstddef>
#include <string_view>

namespace ravelin::platform {

/// How many arrays and dictionaries of a property list may lie within one another.
inline constexpr std::size_t PROPERTY_LIST_NESTING_LIMIT = 64;

/// How many values a property list may have, keys included.
inline constexpr std::size_t PROPERTY_LIST_VALUE_LIMIT = 65536;

[[nodiscard]] bool isBinaryPropertyList(std::string_view content);

/// Whether a property list, XML or binary, is complete and keeps to the limits. libplist does not
/// ask: it fills in what is missing and takes as much stack and memory as the nesting wants, which
/// in a binary file of a few hundred bytes can be without end. The values themselves are not looked
/// at. Any thread.
[[nodiscard]] bool hasSoundShape(std::string_view content);

}  // namespace ravelin::platform
