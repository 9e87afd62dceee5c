#include "platform/linux/VolumesHelper.h"

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
    ChildResult result = HelperProgram("ravelin-disk-volumes-helper").run(arguments, LIMIT);
    if (result.timedOut) {
      return {.situation = VolumeSituation::timedOut, .mountPoint = ""};
    }
    const auto situation = static_cast<VolumeSituation>(result.terminationStatus);
    if (result.wasSignalled ||
        (situation != VolumeSituation::done &&
         (situation < VolumeSituation::noServer || situation > VolumeSituation::failed))) {
      return {.situation = VolumeSituation::failed, .mountPoint = ""};
    }
    return {.situation = situation, .mountPoint = std::move(result.output)};
  } catch (const LaunchException&) {
    return {.situation = VolumeSituation::noHelper, .mountPoint = ""};
  }
}

}  // namespace

VolumesHelper::Answer VolumesHelper::mount(const std::string& url) { return run({"mount", url}); }

VolumeSituation VolumesHelper::unmount(const std::string& mountPoint) {
  return run({"unmount", mountPoint}).situation;
}

}  // namespace ravelin::platform
