#include "base/PathComponents.h"

#include <cstddef>

namespace ravelin {

std::string lastPathComponent(std::string_view path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string_view::npos) {
    return path.empty() ? "" : "/";
  }
  const std::string_view trimmed = path.substr(0, end + 1);
  return std::string(trimmed.substr(trimmed.find_last_of('/') + 1));
}

}  // namespace ravelin
