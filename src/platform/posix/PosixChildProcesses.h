#pragma once

#include "platform/ChildProcess.h"
#include "platform/posix/ProcessSystem.h"

namespace ravelin::platform {

/// Runs programs on a POSIX system. Any thread.
class PosixChildProcesses final : public ChildProcesses {
 public:
  /// The system must outlive this object.
  explicit PosixChildProcesses(const ProcessSystem& system) : _system(system) {}

  ChildResult run(const std::string& path, const std::vector<std::string>& arguments, Output output,
                  std::optional<std::chrono::milliseconds> limit) override;

 private:
  const ProcessSystem& _system;
};

}  // namespace ravelin::platform
