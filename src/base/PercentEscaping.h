#pragma once

#include <string>
#include <string_view>

#include "base/Text.h"

namespace ravelin {

/// The text with every character that may not stand in a URL as "%" and two hexadecimal digits.
/// Those that separate the parts of a URL stay as they are, and a "%" becomes "%25". Null when a
/// character is not ASCII. Any thread.
[[nodiscard]] Text addingPercentEscapes(std::string_view text);

/// The text with the bytes that its percent escapes stand for; a "%" without two hexadecimal digits
/// behind it stays. Any thread.
[[nodiscard]] std::string removingPercentEscapes(std::string_view text);

}  // namespace ravelin
