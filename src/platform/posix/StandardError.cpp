#include "platform/posix/StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <string_view>

#include "base/ThreadSafety.h"

namespace ravelin::platform {
namespace {

struct StandardError {
  Mutex mutex;
  bool lastWasCut GUARDED_BY(mutex) = false;
};

StandardError& standardError() {
  static auto& instance = *new StandardError;
  return instance;
}

/// Keeps the signals that a failing write raises from the process, as long as this lives.
class HeldSignals final {
 public:
  HeldSignals() {
    ::sigemptyset(&_raised);
    ::sigaddset(&_raised, SIGPIPE);  // a pipe nobody reads any more
    ::sigaddset(&_raised, SIGXFSZ);  // a file that has reached the limit of its size
    sigset_t held = _raised;
    ::sigaddset(&held, SIGTTOU);  // while held, a terminal lets a background process write
    ::pthread_sigmask(SIG_BLOCK, &held, &_mask);
  }

  ~HeldSignals() {
    if (_failed) {
      const timespec atOnce{};
      ::sigtimedwait(&_raised, nullptr, &atOnce);
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
  sigset_t _raised{};
  sigset_t _mask{};
  bool _failed = false;
};

/// Repeats the write until the text is out or no more of it is taken; answers how much was.
template <class Write>
std::size_t writeUntilRefused(std::string_view text, const Write& write) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = write(text.substr(written));
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

std::size_t writeToSocket(std::string_view text) {
  return writeUntilRefused(text, [](std::string_view rest) {
    return ::send(STDERR_FILENO, rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  });
}

std::size_t writeToFile(std::string_view text) {
  HeldSignals signals;
  return writeUntilRefused(text, [&signals](std::string_view rest) {
    return signals.seen(::write(STDERR_FILENO, rest.data(), rest.size()));
  });
}

/// A pipe may be asked not to wait, write by write, by newer kernels.
ssize_t writeWithoutWaiting(std::string_view text) {
  const iovec part{const_cast<char*>(text.data()), text.size()};
  return ::pwritev2(STDERR_FILENO, &part, 1, -1, RWF_NOWAIT);
}

/// The last resort, exact as long as no other process writes to the same pipe: one that is ready
/// takes this much without waiting.
ssize_t writeIfReady(std::string_view text) {
  pollfd ready{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&ready, 1, 0) <= 0) {
    return 0;
  }
  return ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

std::size_t writeToPipeOrTerminal(std::string_view text) {
  HeldSignals signals;
  const std::size_t written = writeUntilRefused(
      text, [&signals](std::string_view rest) { return signals.seen(writeWithoutWaiting(rest)); });
  if (written > 0 || errno == EAGAIN || errno == EPIPE) {
    return written;
  }

  // An open file of our own, for the mode of the shared one is not ours to change.
  const int own = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (own < 0) {
    return writeUntilRefused(
        text, [&signals](std::string_view rest) { return signals.seen(writeIfReady(rest)); });
  }
  const std::size_t writtenToOwn = writeUntilRefused(text, [&signals, own](std::string_view rest) {
    return signals.seen(::write(own, rest.data(), rest.size()));
  });
  ::close(own);
  return writtenToOwn;
}

std::size_t writeAtOnce(std::string_view text) {
  struct stat status{};
  if (::fstat(STDERR_FILENO, &status) != 0) {
    return 0;
  }
  if (S_ISSOCK(status.st_mode)) {
    return writeToSocket(text);
  }
  if (S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && ::isatty(STDERR_FILENO) == 1)) {
    return writeToPipeOrTerminal(text);
  }
  return writeToFile(text);
}

}  // namespace

void writeToStandardError(std::string line) {
  StandardError& state = standardError();
  const LockGuard lock(state.mutex);
  if (state.lastWasCut) {
    line.insert(line.begin(), '\n');
  }
  const std::size_t written = writeAtOnce(line);
  if (written > 0) {
    state.lastWasCut = written < line.size();
  }
}

}  // namespace ravelin::platform
