#pragma once

#include <optional>
#include <string>

namespace ravelin {

/// A text that may be absent. Absent and empty are different everywhere.
using Text = std::optional<std::string>;

/// The text as it is put into messages, paths and scripts: "(null)" if it is absent.
[[nodiscard]] inline std::string textOrNull(const Text& text) { return text.value_or("(null)"); }

}  // namespace ravelin
