#pragma once

#include <cstddef>
#include <string_view>

namespace ravelin {

/// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing beyond
/// U+10FFFF. Any thread.
[[nodiscard]] bool isUtf8(std::string_view bytes);

/// How many bytes at the beginning are one well-formed character, or 0 where none is there. Any
/// thread.
[[nodiscard]] std::size_t characterLength(std::string_view bytes);

/// As much of the beginning as the limit allows, in bytes, without half a character at its end. Any
/// thread.
[[nodiscard]] std::string_view beginningOf(std::string_view bytes, std::size_t limit);

}  // namespace ravelin
