#include "platform/linux/gvfs/VolumesHelper.h"

#include <chrono>
#include <utility>
#include <vector>

#include "platform/linux/HelperProgram.h"

namespace ravelin::platform {

namespace {

/// The helper has a limit of its own, well below this one.
constexpr std::chrono::seconds LIMIT{60};

VolumesHelper::Answer run(const std::vector<std::string>& arguments) {
  try {
    ChildResult result = HelperProgram("ravelin-disk-volumes-helper")
                             .run(arguments, LIMIT, ChildProcesses::Output::standardOutput);
    if (result.timedOut) {
      return {.situation = VolumeSituation::timedOut, .text = ""};
    }
    const auto situation = static_cast<VolumeSituation>(result.terminationStatus);
    if (result.wasSignalled ||
        (situation != VolumeSituation::done &&
         (situation < VolumeSituation::noServer || situation > VolumeSituation::failed))) {
      return {.situation = VolumeSituation::failed, .text = ""};
    }
    return {.situation = situation, .text = std::move(result.output)};
  } catch (const LaunchException&) {
    return {.situation = VolumeSituation::noHelper, .text = ""};
  }
}

}  // namespace

VolumesHelper::Answer VolumesHelper::mount(const std::string& url) { return run({"mount", url}); }

VolumesHelper::Answer VolumesHelper::unmount(const std::string& mountPoint) {
  return run({"unmount", mountPoint});
}

}  // namespace ravelin::platform
