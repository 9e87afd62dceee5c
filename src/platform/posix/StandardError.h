#pragma once

#include <string>

namespace ravelin::platform {

/// Writes one line, its line feed included, to the process's standard error. Never waits for a
/// reader and never ends or stops the process, whatever standard error is: what is not taken at
/// once is lost, and the line after one that was cut begins on a line of its own. Lines of several
/// threads do not mix. Changes neither signal dispositions nor the mode of the open file, which
/// other processes share. Any thread.
void writeToStandardError(std::string line);

}  // namespace ravelin::platform
