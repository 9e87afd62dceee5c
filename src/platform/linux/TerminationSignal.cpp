#include "platform/TerminationSignal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <utility>

#include "platform/Precondition.h"
#include "platform/RunLoop.h"

namespace ravelin::platform {

namespace {

std::atomic<int> gWakeDescriptor = -1;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

void wakeMainLoop(int /*signal*/) {
  const int interruptedError = errno;
  const std::uint64_t one = 1;
  // It can only fail where so many signals wait already that the loop wakes anyway.
  [[maybe_unused]] const ssize_t written =
      write(gWakeDescriptor.load(std::memory_order_relaxed), &one, sizeof one);
  errno = interruptedError;
}

}  // namespace

void installTerminationHandler(std::function<void()> handler) {
  RunLoop& loop = RunLoop::main();
  precondition(loop.isCurrent(), "installTerminationHandler", "the thread is the main thread");
  precondition(gWakeDescriptor.load() == -1, "installTerminationHandler", "first call");

  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  precondition(descriptor >= 0, "installTerminationHandler", "the system provides an eventfd");
  static auto& watch = *new std::unique_ptr<RunLoop::Watch>;
  watch = loop.watchReadable(descriptor, RunLoop::Urgency::termination,
                             [descriptor, handler = std::move(handler)] {
                               eventfd_t signals = 0;
                               eventfd_read(descriptor, &signals);
                               handler();
                             });
  precondition(watch != nullptr, "installTerminationHandler", "the loop watches the eventfd");
  gWakeDescriptor.store(descriptor);

  struct sigaction action = {};
  action.sa_handler = wakeMainLoop;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  precondition(sigaction(SIGTERM, &action, nullptr) == 0, "installTerminationHandler",
               "the signal can be handled");
}

}  // namespace ravelin::platform
