#include "platform/TerminationSignal.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

#include "base/Precondition.h"
#include "platform/RunLoop.h"

namespace ravelin::platform {

namespace {

/// What the end of a session or a terminal sends besides SIGTERM, often right after it.
constexpr std::array SESSION_SIGNALS{SIGHUP, SIGINT, SIGQUIT};

/// What does not end the process anyway, or tells of a fault that makes going on pointless.
constexpr std::array UNTOUCHED_SIGNALS{SIGTERM, SIGKILL, SIGSTOP, SIGCHLD, SIGILL, SIGTRAP,
                                       SIGABRT, SIGBUS,  SIGFPE,  SIGSEGV, SIGSYS};

std::atomic<bool> gInstalled = false;
std::atomic<bool> gTerminating = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler reads it");

void setDisposition(int signal, void (*disposition)(int)) {
  struct sigaction action = {};
  action.sa_handler = disposition;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Does what the system would do, but nothing once SIGTERM has been sent. A default disposition
/// could not make that difference: with it the process would be lost as soon as the signal is sent,
/// before any handler of SIGTERM could run.
void endUnlessTerminating(int signal) {
  const int interruptedError = errno;
  sigset_t waiting;
  sigemptyset(&waiting);
  sigpending(&waiting);
  // In this order: SIGTERM waits until the flag is set.
  if (sigismember(&waiting, SIGTERM) != 1 && !gTerminating.load()) {
    setDisposition(signal, SIG_DFL);
    raise(signal);  // has its effect when this handler returns
  }
  errno = interruptedError;
}

/// From here on nothing that can be prevented ends or stops the process.
void ignoreEverythingElse() {
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (std::ranges::find(UNTOUCHED_SIGNALS, signal) == UNTOUCHED_SIGNALS.end()) {
      setDisposition(signal, SIG_IGN);
    }
  }
}

void takeSignals(int descriptor) {
  signalfd_siginfo taken = {};
  while (read(descriptor, &taken, sizeof taken) > 0) {
  }
}

}  // namespace

void installTerminationHandler(std::function<void()> handler) {
  RunLoop& loop = RunLoop::main();
  precondition(loop.isCurrent(), "installTerminationHandler", "the thread is the main thread");
  precondition(!gInstalled.exchange(true), "installTerminationHandler", "first call");

  // Threads that are started later inherit this. So a signal that has been sent waits, where
  // everybody can see it, until the loop takes it; whichever thread gets the next signal.
  sigset_t termination;
  sigemptyset(&termination);
  sigaddset(&termination, SIGTERM);
  precondition(pthread_sigmask(SIG_BLOCK, &termination, nullptr) == 0, "installTerminationHandler",
               "the signal can be blocked");
  setDisposition(SIGTERM, SIG_DFL);
  const int descriptor = signalfd(-1, &termination, SFD_CLOEXEC | SFD_NONBLOCK);
  precondition(descriptor >= 0, "installTerminationHandler", "the system provides a signalfd");
  static auto& watch = *new std::unique_ptr<RunLoop::Watch>;
  watch = loop.watchReadable(descriptor, RunLoop::Urgency::termination,
                             [descriptor, handler = std::move(handler)] {
                               gTerminating.store(true);
                               ignoreEverythingElse();
                               takeSignals(descriptor);
                               handler();
                             });
  precondition(watch != nullptr, "installTerminationHandler", "the loop watches the signalfd");

  for (const int signal : SESSION_SIGNALS) {
    if (!isIgnored(signal)) {
      setDisposition(signal, endUnlessTerminating);
    }
  }
}

}  // namespace ravelin::platform
