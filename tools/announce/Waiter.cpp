#include "Waiter.h"

#include <sys/select.h>

#include <algorithm>
#include <ctime>

namespace ravelin::announce {

namespace {

volatile std::sig_atomic_t gAskedToEnd = 0;

}  // namespace

Waiter::Waiter() : _whileWaiting() { ::sigprocmask(SIG_BLOCK, nullptr, &_whileWaiting); }

void Waiter::heedSignals() {
  // They are blocked except during the wait itself, so that none slips in just before it.
  sigset_t heeded;
  sigemptyset(&heeded);
  struct sigaction action{};
  action.sa_handler = [](int) { gAskedToEnd = 1; };
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) {
    sigaddset(&heeded, signal);
    ::sigaction(signal, &action, nullptr);
  }
  ::sigprocmask(SIG_BLOCK, &heeded, nullptr);
}

bool Waiter::waitUntil(std::chrono::steady_clock::time_point time) const {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  for (;;) {
    const nanoseconds left =
        std::max(nanoseconds(0), nanoseconds(time - std::chrono::steady_clock::now()));
    const auto whole = std::chrono::floor<seconds>(left);
    const timespec timeout{static_cast<std::time_t>(whole.count()),
                           static_cast<long>((left - whole).count())};
    ::pselect(0, nullptr, nullptr, nullptr, &timeout, &_whileWaiting);
    if (gAskedToEnd != 0) {
      return false;
    }
    if (left == nanoseconds(0)) {
      return true;
    }
  }
}

}  // namespace ravelin::announce
