#include "platform/linux/shortcut/ShortcutHelper.h"

#include <cstdlib>

#include "platform/Service.h"
#include "platform/linux/HelperProgram.h"

namespace ravelin::platform {

namespace {

using Clock = std::chrono::steady_clock;

/// The helper's verdict. Any other status does not come from the helper's own work.
std::optional<bool> saidBy(const ChildResult& result) {
  if (result.wasSignalled ||
      (result.terminationStatus != EXIT_SUCCESS && result.terminationStatus != EXIT_FAILURE)) {
    return std::nullopt;
  }
  return result.succeeded();
}

}  // namespace

std::optional<bool> ShortcutHelper::run(const std::vector<std::string>& arguments) {
  if (_hungAt && Clock::now() - *_hungAt < _pause) {
    return std::nullopt;
  }
  _hungAt.reset();
  try {
    // The output is collected and dropped: decoders write warnings.
    const ChildResult result = HelperProgram(NAME).run(arguments, _limit);
    if (result.timedOut) {
      _hungAt = Clock::now();
      return std::nullopt;
    }
    return saidBy(result);
  } catch (const LaunchException&) {
    return std::nullopt;
  }
}

template <>
ShortcutHelper& native<ShortcutHelper>() {
  static auto& instance = *new ShortcutHelper;
  return instance;
}

}  // namespace ravelin::platform
