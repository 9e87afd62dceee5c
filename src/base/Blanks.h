#pragma once

#include <string_view>

namespace ravelin {

/// The UTF-8 text without the white space and line ends at its beginning: the separators of Unicode
/// (the categories Zs, Zl and Zp), U+0009 to U+000D, and U+0085. Any thread.
[[nodiscard]] std::string_view withoutLeadingBlanks(std::string_view text);

}  // namespace ravelin
