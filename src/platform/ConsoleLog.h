#pragma once

#include <string_view>

namespace ravelin::platform {

/// Writes one line to the platform's plain console log, which is standard error with the time and
/// the process in front. The text is data, not a template. Never stalls or ends the process: what
/// standard error does not take at once is lost. Any thread.
void consoleLog(std::string_view text);

}  // namespace ravelin::platform
