#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Service.h"

namespace ravelin::platform {

/// What is raised where a program cannot be started at all.
class LaunchException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How a program ended.
struct ChildResult {
  /// What it exited with, or the number of the signal that ended it; -1 when the system does not
  /// tell how it ended.
  int terminationStatus = 0;
  bool wasSignalled = false;
  /// It had not ended when the time was up, and was killed.
  bool timedOut = false;
  /// What it wrote, where that was asked for.
  std::string output;

  [[nodiscard]] bool succeeded() const { return !wasSignalled && terminationStatus == 0; }
};

/// Runs programs, without a shell. They begin with no signal ignored or blocked, whatever this
/// process does. A process that was made to ignore how its children end stops doing so. Any thread;
/// the caller waits.
class ChildProcesses {
 public:
  enum class Output {
    inherited,       ///< goes where this process's output goes
    collected,       ///< standard output and standard error together, read while the program runs
    standardOutput,  ///< standard output alone is read so; standard error is inherited
  };

  virtual ~ChildProcesses() = default;

  /// Runs the program at the path with the arguments and waits until it has ended, but no longer
  /// than the limit; then it is killed, and given up if it does not even end then. Its standard
  /// input is empty. Of the output, 16 MiB are kept and the rest is read and dropped. Raises
  /// LaunchException when it cannot be started.
  virtual ChildResult run(const std::string& path, const std::vector<std::string>& arguments,
                          Output output,
                          std::optional<std::chrono::milliseconds> limit = std::nullopt) = 0;
};

template <>
ChildProcesses& native<ChildProcesses>();

}  // namespace ravelin::platform
