#include "platform/linux/IconProgram.h"

#include <chrono>

#include "platform/linux/HelperProgram.h"

namespace ravelin::platform {

namespace {

constexpr std::chrono::seconds LIMIT{3};

}  // namespace

bool IconProgram::run(const std::vector<std::string>& arguments) {
  try {
    // Its output is collected to be forgotten: decoders like to complain.
    return HelperProgram("ravelin-disk-icon").run(arguments, LIMIT).succeeded();
  } catch (const LaunchException&) {
    return false;
  }
}

}  // namespace ravelin::platform
