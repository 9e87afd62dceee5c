#include "EndSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

namespace ravelin::check {

namespace {

constexpr std::array SIGNALS{SIGINT, SIGTERM};

/// A pipe, whose writing end the handler of the signals has.
std::array<int, 2> gPipe{-1, -1};

void wake(int /*signal*/) {
  const int before = errno;
  const std::byte any{};
  [[maybe_unused]] const ssize_t written = ::write(gPipe[1], &any, sizeof any);
  errno = before;
}

}  // namespace

EndSignals::EndSignals(platform::RunLoop& loop, std::function<void()> action) {
  if (::pipe2(gPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    return;
  }
  _watch = loop.watchReadable(
      gPipe[0], platform::RunLoop::Urgency::termination, [action = std::move(action)] {
        std::byte any{};
        [[maybe_unused]] const ssize_t size = ::read(gPipe[0], &any, sizeof any);
        action();
      });
  // Without SA_RESTART: where nobody takes what is printed, that does not go on waiting.
  struct sigaction handling{};
  handling.sa_handler = wake;
  for (const int signal : SIGNALS) {
    ::sigaction(signal, &handling, nullptr);
  }
}

EndSignals::~EndSignals() {
  if (gPipe[0] < 0) {
    return;
  }
  for (const int signal : SIGNALS) {
    std::signal(signal, SIG_DFL);
  }
  _watch.reset();
  ::close(gPipe[0]);
  ::close(gPipe[1]);
  gPipe = {-1, -1};
}

}  // namespace ravelin::check
