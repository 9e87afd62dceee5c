#include "platform/TerminationSignal.h"

#include <pthread.h>
#include <sys/signalfd.h>

#include <csignal>
#include <utility>

#include "platform/RunLoop.h"
#include "platform/posix/TerminationHandling.h"

namespace ravelin::platform {

namespace {

int wakeThroughSignalDescriptor() {
  // Threads that are started later inherit this. So a signal that has been sent waits, where
  // everybody can see it, until the loop takes it; whichever thread gets the next signal.
  sigset_t termination;
  sigemptyset(&termination);
  sigaddset(&termination, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &termination, nullptr) != 0) {
    return -1;
  }
  // One that is ignored would not wait.
  std::signal(SIGTERM, SIG_DFL);
  return ::signalfd(-1, &termination, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

void installTerminationHandler(std::function<void()> handler) {
  handleTermination(RunLoop::main(), wakeThroughSignalDescriptor, std::move(handler));
}

}  // namespace ravelin::platform
