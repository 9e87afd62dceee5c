#include "platform/linux/HelperProgram.h"

#include <filesystem>
#include <system_error>

#include "platform/Service.h"

namespace ravelin::platform {

ChildResult HelperProgram::run(const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit,
                               ChildProcesses::Output output) const {
  return service<ChildProcesses>().run(_located(), arguments, output, limit);
}

std::string HelperProgram::_located() const {
  std::error_code error;
  const auto here = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  const std::filesystem::path installed = (here / RAVELIN_DISK_HELPERS / _name).lexically_normal();
  const bool isInstalled = std::filesystem::exists(installed, error);
  return (isInstalled ? installed : here / _name).string();
}

}  // namespace ravelin::platform
