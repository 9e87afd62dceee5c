#include "platform/posix/StandardError.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>

namespace ravelin::platform {
namespace {

/// Keeps the signals that a failing write raises from the process, as long as this lives.
class HeldSignals final {
 public:
  HeldSignals() {
    // Without colons in front, since some systems have macros here.
    sigemptyset(&_raised);
    sigaddset(&_raised, SIGPIPE);  // a pipe nobody reads any more
    sigaddset(&_raised, SIGXFSZ);  // a file that has reached the limit of its size
    sigset_t held = _raised;
    sigaddset(&held, SIGTTOU);  // while held, a terminal lets a background process write
    ::pthread_sigmask(SIG_BLOCK, &held, &_mask);
  }

  ~HeldSignals() {
    if (_failed && _isPending()) {
      int taken = 0;
      ::sigwait(&_raised, &taken);
    }
    ::pthread_sigmask(SIG_SETMASK, &_mask, nullptr);
  }

  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  /// Looks at the result of a write: one that failed may have raised a signal.
  ssize_t seen(ssize_t result) {
    _failed = _failed || (result < 0 && (errno == EPIPE || errno == EFBIG));
    return result;
  }

 private:
  /// A failing write raises its signal for this thread alone, so no other thread can take it.
  [[nodiscard]] static bool _isPending() {
    sigset_t pending{};
    return ::sigpending(&pending) == 0 &&
           (sigismember(&pending, SIGPIPE) == 1 || sigismember(&pending, SIGXFSZ) == 1);
  }

  sigset_t _raised{};
  sigset_t _mask{};
  bool _failed = false;
};

/// Repeats the write until the text is out or no more of it is taken; returns how much was.
template <class Write>
std::size_t writeUntilRefused(std::string_view text, const Write& write) {
  HeldSignals signals;
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = signals.seen(write(text.substr(written)));
    if (result < 0 && errno == EINTR) {
      continue;
    }
    if (result <= 0) {
      break;
    }
    written += static_cast<std::size_t>(result);
  }
  return written;
}

ssize_t sendWithoutWaiting(std::string_view text) {
  return ::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT);
}

ssize_t writeToFile(std::string_view text) {
  return ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

ssize_t writeToStandardErrorIfReady(std::string_view text) {
  pollfd ready{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&ready, 1, 0) <= 0) {
    return 0;
  }
  return ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

void StandardErrorWriter::write(std::string line) {
  const LockGuard lock(_mutex);
  if (_lastWasCut) {
    line.insert(line.begin(), '\n');
  }
  const std::size_t written = _writeAtOnce(line);
  if (written > 0) {
    _lastWasCut = written < line.size();
  }
}

std::size_t StandardErrorWriter::_writeAtOnce(std::string_view text) const {
  struct stat status{};
  if (::fstat(STDERR_FILENO, &status) != 0) {
    return 0;
  }
  if (S_ISSOCK(status.st_mode)) {
    return writeUntilRefused(text, sendWithoutWaiting);
  }
  if (S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && ::isatty(STDERR_FILENO) == 1)) {
    return writeUntilRefused(text, _writeToPipe);
  }
  return writeUntilRefused(text, writeToFile);
}

}  // namespace ravelin::platform
