#pragma once

#include <cstddef>
#include <string_view>

namespace ravelin {

/// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing beyond
/// U+10FFFF. Any thread.
[[nodiscard]] bool isUtf8(std::string_view bytes);

/// The length, in bytes, of the well-formed character at the beginning, or 0 if there is none. Any
/// thread.
[[nodiscard]] std::size_t characterLength(std::string_view bytes);

/// The beginning, up to the limit in bytes, without a part of a character at its end. Any thread.
[[nodiscard]] std::string_view beginningOf(std::string_view bytes, std::size_t limit);

}  // namespace ravelin
