#include "platform/linux/IconProgram.h"

#include <chrono>
#include <filesystem>

#include "platform/ChildProcess.h"
#include "platform/Service.h"

namespace ravelin::platform {

namespace {

constexpr std::chrono::seconds LIMIT{3};

}  // namespace

std::string IconProgram::_path() {
  std::error_code error;
  const auto agent = std::filesystem::read_symlink("/proc/self/exe", error);
  return (agent.parent_path() / "ravelin-disk-icon").string();
}

bool IconProgram::run(const std::vector<std::string>& arguments) {
  try {
    // Its output is collected to be forgotten: decoders like to complain.
    return service<ChildProcesses>()
        .run(_path(), arguments, ChildProcesses::Output::collected, LIMIT)
        .succeeded();
  } catch (const LaunchException&) {
    return false;
  }
}

}  // namespace ravelin::platform
