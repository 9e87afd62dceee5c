#pragma once

#include <string>
#include <string_view>

namespace ravelin {

/// The text in one line of printable ASCII: everything else in it is shown as \n, \r, \t or, byte
/// by byte, \xHH, and a backslash as two. Different texts look different. Any thread.
[[nodiscard]] std::string visible(std::string_view text);

/// The text in one line of UTF-8, for people: control characters, and bytes that are not
/// well-formed UTF-8, are shown in these forms; everything else stays as it is, backslashes too.
/// Any thread.
[[nodiscard]] std::string visibleLine(std::string_view text);

/// The same in as many lines as the text has: a line feed begins a line, which starts with a tab.
/// No line of the text, after its first one, can be taken for the first line of another text. Any
/// thread.
[[nodiscard]] std::string visibleLines(std::string_view text);

/// The same without the tabs, for what puts them there itself. Any thread.
[[nodiscard]] std::string visibleText(std::string_view text);

}  // namespace ravelin
