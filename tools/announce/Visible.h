#pragma once

#include <string>
#include <string_view>

namespace ravelin::announce {

/// The text in one line of printable ASCII: whatever else it holds is shown as \n, \r, \t or \xHH,
/// and a backslash as two.
[[nodiscard]] std::string visible(std::string_view text);

}  // namespace ravelin::announce
