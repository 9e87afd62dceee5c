#include <cstdlib>
#include <memory>
#include <string_view>

#include "base/Precondition.h"
#include "core/AgentState.h"
#include "core/Logger.h"
#include "core/Warden.h"
#include "platform/ApplicationServices.h"
#include "platform/ConsoleLog.h"
#include "platform/StandardDescriptors.h"
#include "platform/TerminationSignal.h"

namespace ravelin {

namespace {

/// The one agent, which mounts disks, hence the name; `main` owns it. Null while there is none.
Warden* mounter = nullptr;

/// Runs on the main thread, woken by SIGTERM. Leaving the process from here, without the orderly
/// way out of `run`, is what keeps the handler thread from making another shortcut.
[[noreturn]] void handleSigTermSignal() {
  if (mounter != nullptr) {
    mounter->systemWillTerminate();
  }
  gSystemWillTerminate = true;
  Logger::logMessage("System will terminate signal has been catched and handled.", LogTypeInfo);
  std::exit(0);
}

}  // namespace

}  // namespace ravelin

int main() {
  using namespace ravelin;
  platform::openStandardDescriptors();
  setPreconditionReport([](std::string_view message) { platform::consoleLog(message); });
  platform::installTerminationHandler(handleSigTermSignal);
  platform::consoleLog(platform::loadApplicationServices() ? "Success initializing Cocoa."
                                                           : "Error initializing Cocoa.");
  const auto agent = std::make_unique<Warden>();
  mounter = agent.get();
  mounter->run();
  mounter = nullptr;
  return 0;
}
