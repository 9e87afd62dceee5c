#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Announcements.h"
#include "NoDesktop.h"
#include "intake/Server.h"
#include "platform/RunLoop.h"
#include "support/OpenController.h"

namespace ravelin::bench {

namespace {

using platform::RunLoop;

constexpr int ROUNDS = 8;
/// As many as may wait of one sender.
constexpr std::size_t MOST_DATAGRAMS = 1024;
/// So many different ones come again and again.
constexpr std::size_t REPEATED_DATAGRAMS = 64;
/// What the kernel may take from the receive buffer for one small datagram.
constexpr std::size_t BUFFER_PER_DATAGRAM = 1280;
constexpr std::size_t DATAGRAM_LIMIT = 65536;
constexpr RunLoop::Seconds PATIENCE{1.0};

const sockaddr* generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A UDP socket on the loopback address.
class Socket {
 public:
  Socket() : _descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_in local = loopback(0);
    if (_descriptor < 0 || ::bind(_descriptor, generic(local), sizeof local) != 0) {
      std::abort();  // the loopback address always has a free port
    }
  }
  ~Socket() { ::close(_descriptor); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  [[nodiscard]] int descriptor() const { return _descriptor; }

  [[nodiscard]] std::uint16_t port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
  }

 private:
  int _descriptor;
};

/// Makes the receive buffer as large as the system allows, and returns how many announcements are
/// sure to fit.
std::size_t enlarge(int descriptor) {
  const int wanted = 64 * 1024 * 1024;
  ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
  int size = 0;
  socklen_t length = sizeof size;
  ::getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &size, &length);
  return std::min(MOST_DATAGRAMS, static_cast<std::size_t>(size) / BUFFER_PER_DATAGRAM);
}

const std::vector<std::string>& announcements() {
  static const auto& all = *[] {
    auto* made = new std::vector<std::string>;
    for (std::size_t number = 0; number < MOST_DATAGRAMS; ++number) {
      made->push_back(statusAnnouncement(number));
    }
    return made;
  }();
  return all;
}

/// How long this thread has run so far: other processes on the machine do not count.
double workedSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void nothing() {}

/// Fills the socket again and again, with so many different datagrams, and times only how it is
/// drained. `drain` returns whether it got that many datagrams; `tidyUp` follows each time.
void measure(benchmark::State& state, int descriptor, std::uint16_t port,
             const std::function<bool(std::size_t)>& drain,
             const std::function<void()>& tidyUp = nothing,
             std::size_t different = MOST_DATAGRAMS) {
  const std::size_t count = enlarge(descriptor);
  const Socket sender;
  const sockaddr_in receiver = loopback(port);
  for ([[maybe_unused]] const auto round : state) {
    for (std::size_t index = 0; index < count; ++index) {
      const std::string& text = announcements()[index % different];
      ::sendto(sender.descriptor(), text.data(), text.size(), 0, generic(receiver),
               sizeof receiver);
    }
    const double start = workedSeconds();
    const bool drained = drain(count);
    state.SetIterationTime(workedSeconds() - start);
    tidyUp();
    if (!drained) {
      state.SkipWithError("datagrams were lost");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

void bare(benchmark::State& state) {
  const Socket socket;
  measure(state, socket.descriptor(), socket.port(), [&](std::size_t count) {
    std::array<std::byte, DATAGRAM_LIMIT> buffer;  // NOLINT: filled by recvfrom
    for (std::size_t index = 0; index < count; ++index) {
      sockaddr_in source;  // NOLINT: likewise
      socklen_t size = sizeof source;
      if (::recvfrom(socket.descriptor(), buffer.data(), buffer.size(), 0,
                     reinterpret_cast<sockaddr*>(&source), &size) <= 0) {
        return false;
      }
      benchmark::ClobberMemory();
    }
    return true;
  });
}

std::uint16_t freePort() { return Socket().port(); }

/// Runs the main thread's run loop until the number that `received` returns has grown by `count`.
bool runUntilReceived(std::size_t count, const std::function<std::size_t()>& received) {
  const auto end = std::chrono::steady_clock::now() + PATIENCE;
  const std::size_t wanted = received() + count;
  while (received() < wanted) {
    const std::size_t before = received();
    RunLoop::current().runOnce(PATIENCE);
    if (received() == before && std::chrono::steady_clock::now() >= end) {
      return false;
    }
  }
  return true;
}

/// Counts the datagrams, and gives them to the controller where there is one.
class Counter final : public ServerDelegate {
 public:
  explicit Counter(Controller* controller = nullptr) : _controller(controller) {}

  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override {
    ++_received;
    if (_controller != nullptr) {
      _controller->server(server, receivedData, fromAddress);
    }
  }
  [[nodiscard]] std::size_t received() const { return _received; }

 private:
  Controller* const _controller;
  std::size_t _received = 0;
};

void server(benchmark::State& state) {
  const auto counter = std::make_shared<Counter>();
  const std::uint16_t port = freePort();
  Server server;
  server.startOnAddress("127.0.0.1", port);
  server.setDelegate(counter);
  measure(state, server.cfSocket()->native(), port, [&](std::size_t count) {
    return runUntilReceived(count, [&] { return counter->received(); });
  });
}

/// All the disks are known, so that the handler thread, which runs beside this as it always does,
/// has nothing to hand back to the main thread. What waits after a round is handled before the
/// next.
void intakeOf(benchmark::State& state, std::size_t different) {
  const NoDesktop noDesktop;
  test::OpenController controller;
  mountAnnounced(controller, MOST_DATAGRAMS);
  const auto counter = std::make_shared<Counter>(&controller);
  const std::uint16_t port = freePort();
  Server server;
  server.startOnAddress("127.0.0.1", port);
  server.setDelegate(counter);
  std::size_t waited = 0;
  measure(
      state, server.cfSocket()->native(), port,
      [&](std::size_t count) {
        return runUntilReceived(count, [&] { return counter->received(); });
      },
      [&] {
        waited += controller.waitingEvents();
        controller._processNextDiskEvent();
      },
      different);
  // The handler thread takes some. If it took all, or none were queued, nothing was measured.
  if (waited == 0) {
    state.SkipWithError("nothing was queued");
  }
}

void intake(benchmark::State& state) { intakeOf(state, MOST_DATAGRAMS); }

/// All but the first of each are dropped, since their like is waiting.
void repeatedIntake(benchmark::State& state) { intakeOf(state, REPEATED_DATAGRAMS); }

BENCHMARK(bare)->Name("reception/bare")->UseManualTime()->Iterations(ROUNDS);
BENCHMARK(server)->Name("reception/server")->UseManualTime()->Iterations(ROUNDS);
BENCHMARK(intake)->Name("reception/intake")->UseManualTime()->Iterations(ROUNDS);
BENCHMARK(repeatedIntake)->Name("reception/repeated")->UseManualTime()->Iterations(ROUNDS);

}  // namespace

}  // namespace ravelin::bench
