#pragma once

#include <string>
#include <string_view>

namespace ravelin::platform {

/// The text in one line of printable ASCII: whatever else it holds is shown as \n, \r, \t or, byte
/// by byte, \xHH, and a backslash as two. Different texts look different. Any thread.
[[nodiscard]] std::string visible(std::string_view text);

/// The same, but what is well-formed UTF-8 and no control character stays readable, and a line feed
/// begins a line, which starts with a tab: no line of the text, after its first one, can be taken
/// for the first line of another text. Any thread.
[[nodiscard]] std::string visibleLines(std::string_view text);

}  // namespace ravelin::platform
