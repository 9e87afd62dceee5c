#include "platform/linux/HelperProgram.h"

#include <filesystem>
#include <system_error>

#include "platform/Service.h"

namespace ravelin::platform {

ChildResult HelperProgram::run(const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit,
                               ChildProcesses::Output output) const {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  return service<ChildProcesses>().run((self.parent_path() / _name).string(), arguments, output,
                                       limit);
}

}  // namespace ravelin::platform
