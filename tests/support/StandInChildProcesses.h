#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/Service.h"

namespace ravelin::test {

/// One program that was to be run.
struct ProgramCall {
  std::string path;
  std::vector<std::string> arguments;
  platform::ChildProcesses::Output output;
  std::optional<std::chrono::milliseconds> limit;
};

/// Takes the place of child processes for its lifetime: notes what was to be run, and returns what
/// the test chooses.
class StandInChildProcesses final : public platform::ChildProcesses {
 public:
  std::function<platform::ChildResult(const ProgramCall&)> answer = [](const ProgramCall&) {
    return platform::ChildResult();
  };

  platform::ChildResult run(const std::string& path, const std::vector<std::string>& arguments,
                            Output output,
                            std::optional<std::chrono::milliseconds> limit) override {
    _calls.push_back({.path = path, .arguments = arguments, .output = output, .limit = limit});
    return answer(_calls.back());
  }

  /// The calls so far, which are then forgotten.
  std::vector<ProgramCall> takeCalls() { return std::exchange(_calls, {}); }

 private:
  std::vector<ProgramCall> _calls;
  const platform::Substitute<platform::ChildProcesses> _inForce{*this};
};

/// How a program ends that exits with the status after having written the output.
inline platform::ChildResult exited(int status, std::string output = "") {
  platform::ChildResult result;
  result.terminationStatus = status;
  result.output = std::move(output);
  return result;
}

}  // namespace ravelin::test
