#pragma once

#include <optional>
#include <string>

namespace ravelin {

/// A text that may be absent. Absent and empty are different everywhere.
using Text = std::optional<std::string>;

/// What stands in a message where the text belongs: the text itself, or "(null)" for an absent one.
[[nodiscard]] inline std::string textOrNull(const Text& text) { return text.value_or("(null)"); }

}  // namespace ravelin
