#pragma once

#include <cstddef>
#include <string_view>

namespace ravelin::platform {

/// Writes one line to the platform's plain console log: standard error, and on some systems their
/// log service too, with the time and the process in front. The text is data, not a template;
/// control characters in it are visible, and its further lines begin with a tab (see Visible).
/// Returns how many bytes, at most LOG_LINE_LIMIT, the line takes; the rest of it is cut. A
/// standard error that nobody reads does not end the process. Any thread.
std::size_t consoleLog(std::string_view text);

}  // namespace ravelin::platform
