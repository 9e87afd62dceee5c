#pragma once

#include <string_view>

#include "base/Text.h"

namespace ravelin::platform {

/// Why what would be the content of a file is no property list with a dictionary at its top, in
/// words for people that begin with "it"; null where it is one. Any thread.
[[nodiscard]] Text faultOfPropertyList(std::string_view content);

}  // namespace ravelin::platform
