#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/InternetAddress.h"
#include "base/Text.h"

namespace ravelin::test {

inline sockaddr_in internetAddress(const std::string& host, std::int32_t port) {
  return ravelin::internetAddress(::inet_addr(host.c_str()),
                                  htons(static_cast<std::uint16_t>(port)));
}

template <class Address>
std::span<const std::byte> rawBytes(const Address& address) {
  return std::as_bytes(std::span(&address, 1));
}

/// A UDP socket at a port that the system chose. A read waits no longer than ten seconds.
class UdpSocket {
 public:
  explicit UdpSocket(const std::string& host = "127.0.0.1")
      : _descriptor(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in address = internetAddress(host, 0);
    const timeval patience{.tv_sec = 10, .tv_usec = 0};
    if (::bind(_descriptor, asSocketAddress(address), sizeof address) != 0 ||
        ::setsockopt(_descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0) {
      throw std::runtime_error("no UDP socket at " + host);
    }
  }
  ~UdpSocket() { ::close(_descriptor); }
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  [[nodiscard]] int descriptor() const { return _descriptor; }

  [[nodiscard]] std::int32_t port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
  }

  /// False when the system does not take the whole datagram.
  bool send(std::string_view payload, std::int32_t port,
            const std::string& host = "127.0.0.1") const {
    const sockaddr_in address = internetAddress(host, port);
    return ::sendto(_descriptor, payload.data(), payload.size(), 0, asSocketAddress(address),
                    sizeof address) == static_cast<ssize_t>(payload.size());
  }

  /// Null when nothing comes.
  [[nodiscard]] Text receive() const {
    std::array<char, 65536> buffer{};
    const ssize_t size = ::recv(_descriptor, buffer.data(), buffer.size(), 0);
    return size < 0 ? Text() : Text(std::string(buffer.data(), static_cast<std::size_t>(size)));
  }

 private:
  static const sockaddr* asSocketAddress(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
  }

  int _descriptor;
};

/// Reserves a port, so that no other test that runs meanwhile is given the same one. Sockets that
/// share their port can be bound to it, on any address but this one's.
class ReservedPort {
 public:
  ReservedPort() {
    const int on = 1;
    if (::setsockopt(_holder.descriptor(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) != 0) {
      throw std::runtime_error("the port cannot be shared");
    }
  }

  [[nodiscard]] std::int32_t number() const { return _holder.port(); }

 private:
  const UdpSocket _holder{"127.0.0.77"};
};

}  // namespace ravelin::test
