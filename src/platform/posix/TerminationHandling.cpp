#include "platform/posix/TerminationHandling.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <span>
#include <utility>

#include "base/Precondition.h"
#include "platform/RunLoop.h"

namespace ravelin::platform {

namespace {

/// What the end of a session or a terminal sends besides SIGTERM, often right after it.
constexpr std::array SESSION_SIGNALS{SIGHUP, SIGINT, SIGQUIT};

/// What does not end the process anyway, or reports a fault after which the process cannot
/// continue.
constexpr std::array UNTOUCHED_SIGNALS{SIGTERM, SIGKILL, SIGSTOP, SIGCHLD, SIGILL, SIGTRAP,
                                       SIGABRT, SIGBUS,  SIGFPE,  SIGSEGV, SIGSYS};

constexpr std::array TERMINATION_SIGNALS{SIGTERM};

std::atomic<bool> gInstalled = false;
std::atomic<bool> gTerminating = false;
std::atomic<int> gWritingEnd = -1;  // -1 without a socket
pthread_t gThreadOfSocket{};        // set before
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "signal handlers use them");

/// The blocked signals wait while a handler runs.
void setDisposition(int signal, void (*disposition)(int), std::span<const int> blocked = {}) {
  struct sigaction action = {};
  action.sa_handler = disposition;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int other : blocked) {
    sigaddset(&action.sa_mask, other);
  }
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
  // The main thread may have taken SIGTERM and not begun its handler yet. There this signal waits
  // for that.
  if (gWritingEnd.load() != -1 && pthread_equal(pthread_self(), gThreadOfSocket) == 0) {
    pthread_kill(gThreadOfSocket, signal);
    errno = interruptedError;
    return;
  }
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
  for (int signal = 1; signal < NSIG; ++signal) {
    if (std::ranges::find(UNTOUCHED_SIGNALS, signal) == UNTOUCHED_SIGNALS.end()) {
      setDisposition(signal, SIG_IGN);
    }
  }
}

void readEverything(int descriptor) {
  std::array<char, 1024> taken{};
  while (::read(descriptor, taken.data(), taken.size()) > 0) {
  }
}

void writeToSocket(int /*signal*/) {
  const int interruptedError = errno;
  gTerminating.store(true);
  const char one = 1;
  // It fails only where so many signals wait already that the loop wakes anyway.
  [[maybe_unused]] const ssize_t written = ::write(gWritingEnd.load(), &one, sizeof one);
  errno = interruptedError;
}

}  // namespace

void handleTermination(RunLoop& loop, TerminationWaking waking, std::function<void()> handler) {
  static constexpr const char* OPERATION = "installTerminationHandler";
  precondition(loop.isCurrent(), OPERATION, "the thread is the main thread");
  precondition(!gInstalled.exchange(true), OPERATION, "first call");
  const int descriptor = waking();
  precondition(descriptor >= 0, OPERATION, "the system provides a waking");
  static auto& watch = *new std::unique_ptr<RunLoop::Watch>;
  watch = loop.watchReadable(descriptor, RunLoop::Urgency::termination,
                             [descriptor, handler = std::move(handler)] {
                               gTerminating.store(true);
                               ignoreEverythingElse();
                               readEverything(descriptor);
                               handler();
                             });
  precondition(watch != nullptr, OPERATION, "the loop watches the waking");
  for (const int signal : SESSION_SIGNALS) {
    if (!isIgnored(signal)) {
      // SIGTERM must wait meanwhile, or it would not show among what waits.
      setDisposition(signal, endUnlessTerminating, TERMINATION_SIGNALS);
    }
  }
}

int wakeThroughSocket() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
    return -1;
  }
  for (const int end : ends) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
  gThreadOfSocket = pthread_self();
  gWritingEnd.store(ends[1]);
  // The signals that often come right behind wait until the handler has told that it was called.
  setDisposition(SIGTERM, writeToSocket, SESSION_SIGNALS);
  // The parent of this process may have blocked it.
  sigset_t termination;
  sigemptyset(&termination);
  sigaddset(&termination, SIGTERM);
  return pthread_sigmask(SIG_UNBLOCK, &termination, nullptr) == 0 ? ends[0] : -1;
}

}  // namespace ravelin::platform
