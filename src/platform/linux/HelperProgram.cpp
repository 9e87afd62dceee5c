#include "platform/linux/HelperProgram.h"

#include <filesystem>
#include <system_error>

#include "platform/Service.h"

namespace ravelin::platform {

ChildResult HelperProgram::run(const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit,
                               ChildProcesses::Output output) const {
  return service<ChildProcesses>().run(located(), arguments, output, limit);
}

std::string HelperProgram::located() const {
  std::error_code error;
  const auto here = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  if (error) {
    // A relative path would lead to the working folder, where anything may lie.
    throw LaunchException("cannot start " + _name + ": this program does not know its own place");
  }
  // What lies beside this program is as trustworthy as this program. The other place is not, where
  // somebody keeps this program outside an installation: seen from /tmp/folder it is in /tmp.
  const std::filesystem::path beside = here / _name;
  const bool isBeside = std::filesystem::exists(beside, error);
  const std::filesystem::path installed = (here / RAVELIN_DISK_HELPERS / _name).lexically_normal();
  return (isBeside ? beside : installed).string();
}

}  // namespace ravelin::platform
