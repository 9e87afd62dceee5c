#pragma once

#include <string_view>

namespace ravelin {

/// The UTF-8 text from its first character on that is neither white space nor a line end: not a
/// separator of Unicode's (the categories Zs, Zl and Zp), nor U+0009 to U+000D, nor U+0085. Any
/// thread.
[[nodiscard]] std::string_view withoutLeadingBlanks(std::string_view text);

}  // namespace ravelin
