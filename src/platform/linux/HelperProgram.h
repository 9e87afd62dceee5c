#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/ChildProcess.h"

namespace ravelin::platform {

/// A short-lived program that does what needs libraries that this process does not want. It lies
/// beside this program, as in a build tree, or else where the private programs are installed, as
/// seen from this program's own place. Any thread.
class HelperProgram {
 public:
  explicit HelperProgram(std::string name) : _name(std::move(name)) {}

  /// Runs the helper, no longer than the limit, and collects its output or a part of it. Raises
  /// LaunchException when it cannot be started, for example where it is not installed.
  [[nodiscard]] ChildResult run(
      const std::vector<std::string>& arguments, std::chrono::milliseconds limit,
      ChildProcesses::Output output = ChildProcesses::Output::collected) const;

  /// Where the helper is, or where it would be installed. Raises LaunchException where this program
  /// does not know its own place.
  [[nodiscard]] std::string located() const;

 private:
  std::string _name;
};

}  // namespace ravelin::platform
