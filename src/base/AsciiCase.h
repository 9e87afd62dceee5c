#pragma once

#include <string_view>

namespace ravelin {

/// Whether the character is one of the letters of ASCII, which have two cases. Any thread.
[[nodiscard]] bool isAsciiLetter(char character);

/// Whether the texts are the same but for the case of ASCII letters. Any thread.
[[nodiscard]] bool equalButForCase(std::string_view one, std::string_view other);

}  // namespace ravelin
