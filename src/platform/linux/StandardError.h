#pragma once

#include <string>

namespace ravelin::platform {

/// Writes one line, its line feed included, to the process's standard error (see
/// StandardErrorWriter). Waits neither for a pipe nor for a terminal. Any thread.
void writeToStandardError(std::string line);

}  // namespace ravelin::platform
