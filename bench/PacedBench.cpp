// The two ends of a paced stream of datagrams on the loopback interface, to measure from outside
// what a program takes that listens to it: a sender, and the least that a listener can be.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int MOST = 10'000'000;

int numberIn(const std::string& text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// One datagram after the other, each at its time; one that is late goes at once.
int send(int socket, int port, int rate, int count, const std::string& text) {
  const sockaddr_in receiver = loopback(port);
  const auto interval = std::chrono::nanoseconds(std::chrono::seconds(1)) / rate;
  const auto start = Clock::now();
  for (int number = 0; number < count; ++number) {
    while (Clock::now() < start + number * interval) {
    }
    ::sendto(socket, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&receiver),
             sizeof receiver);
  }
  return 0;
}

/// A loop of blocking reads, until it is ended from outside.
int receive(int socket, int port) {
  const sockaddr_in local = loopback(port);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    std::perror("bind");
    return 1;
  }
  std::puts("listening");
  std::fflush(stdout);
  static std::array<std::byte, 65536> buffer;
  for (;;) {
    sockaddr_storage sender{};
    socklen_t size = sizeof sender;
    ::recvfrom(socket, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender),
               &size);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (arguments.size() == 2 && arguments[0] == "receive") {
    return receive(socket, numberIn(arguments[1]));
  }
  if (arguments.size() == 5 && arguments[0] == "send") {
    const int rate = numberIn(arguments[2]);
    const int count = numberIn(arguments[3]);
    if (rate > 0 && count > 0 && count <= MOST) {
      return send(socket, numberIn(arguments[1]), rate, count, arguments[4]);
    }
  }
  std::fputs("usage: ravelin-disk-paced-bench receive PORT | send PORT RATE COUNT TEXT\n", stderr);
  return 2;
}
