#include "platform/TerminationSignal.h"

#include <utility>

#include "platform/RunLoop.h"
#include "platform/posix/TerminationHandling.h"

namespace ravelin::platform {

void installTerminationHandler(std::function<void()> handler) {
  handleTermination(RunLoop::main(), wakeThroughSocket, std::move(handler));
}

}  // namespace ravelin::platform
