#pragma once

#include <string>
#include <string_view>

namespace ravelin {

/// The last component of a path, slashes at its end left aside; "/" for the root, and empty for an
/// empty path. Any thread.
[[nodiscard]] std::string lastPathComponent(std::string_view path);

}  // namespace ravelin
