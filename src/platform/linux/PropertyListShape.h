#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace ravelin::platform {

/// How many arrays and dictionaries of a property list may lie within one another.
inline constexpr std::size_t PROPERTY_LIST_NESTING_LIMIT = 64;

/// How many values a property list may have, keys included.
inline constexpr std::size_t PROPERTY_LIST_VALUE_LIMIT = 65536;

/// How many bytes a property list may have, and its texts and data together: in a binary list one
/// text may be referred to, and is read, any number of times.
inline constexpr std::size_t PROPERTY_LIST_SIZE_LIMIT = std::size_t{1024} * 1024;

/// How many bytes one text of an XML property list may have; the time that libplist takes for one
/// with entities grows with the square of it.
inline constexpr std::size_t PROPERTY_LIST_TEXT_LIMIT = std::size_t{64} * 1024;

[[nodiscard]] bool isBinaryPropertyList(std::string_view content);

/// A property list, XML or binary, as it may be given to libplist: null unless it is complete and
/// keeps to the limits. libplist does not ask: it fills in what is missing, takes as much stack,
/// memory and time as the content wants, which in a file of a few hundred bytes can be without end,
/// and ends the process at a key with a NUL. Of an XML list nothing is left but tags and texts, so
/// that libplist cannot understand the rest, such as quotes in a declaration, in another way than
/// it was understood here. The values themselves are not looked at. Any thread.
[[nodiscard]] std::optional<std::string> soundPropertyList(std::string_view content);

/// Why there is none, in words for people that begin with "it"; null where there is one. Any
/// thread.
[[nodiscard]] Text faultOfShape(std::string_view content);

}  // namespace ravelin::platform
