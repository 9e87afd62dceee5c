#include "Sender.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>
#include <tuple>
#include <utility>

#include "base/InternetAddress.h"
#include "base/Visible.h"

namespace ravelin::announce {

namespace {

const sockaddr* generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

std::string dotted(const in_addr& address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  ::inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data();
}

std::string reason() { return std::system_category().message(errno); }

std::variant<sockaddr_in, Failure> resolve(const std::string& host, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error != 0) {
    return Failure{MISUSED, "HOST: wanted an IPv4 address or a name that has one, not '" +
                                visible(host) + "': " + ::gai_strerror(error)};
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
  sockaddr_in address{};
  std::memcpy(&address, found->ai_addr, sizeof address);
  address.sin_port = htons(port);
  return address;
}

/// The first IPv4 address of the interface that has the given name or address.
std::variant<in_addr, Failure> interfaceAddress(const std::string& interface) {
  ifaddrs* all = nullptr;
  if (::getifaddrs(&all) != 0) {
    return Failure{FAILED, "cannot list the network interfaces: " + reason()};
  }
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, ::freeifaddrs);
  for (const ifaddrs* entry = all; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
      sockaddr_in address{};
      std::memcpy(&address, entry->ifa_addr, sizeof address);
      if (interface == entry->ifa_name || interface == dotted(address.sin_addr)) {
        return address.sin_addr;
      }
    }
  }
  return Failure{MISUSED,
                 "--interface: wanted the name or IPv4 address of a network interface that has "
                 "one, not '" +
                     visible(interface) + "'"};
}

}  // namespace

std::variant<Sender, Failure> Sender::open(const std::string& host, std::uint16_t port,
                                           const std::optional<std::string>& interface,
                                           std::optional<std::uint8_t> timeToLive) {
  const auto destination = resolve(host, port);
  if (const auto* const failure = std::get_if<Failure>(&destination)) {
    return *failure;
  }
  const auto& address = std::get<sockaddr_in>(destination);
  if (!IN_MULTICAST(ntohl(address.sin_addr.s_addr)) && (interface || timeToLive)) {
    return Failure{MISUSED, std::string(interface ? "--interface" : "--ttl") +
                                ": is for multicast groups only, and '" + visible(host) +
                                "' is none"};
  }
  Sender sender(::socket(AF_INET, SOCK_DGRAM, 0), address);
  if (sender._socket < 0) {
    return sender._failure("cannot open a socket for");
  }
  if (interface) {
    const auto outgoing = interfaceAddress(*interface);
    if (const auto* const failure = std::get_if<Failure>(&outgoing)) {
      return *failure;
    }
    if (::setsockopt(sender._socket, IPPROTO_IP, IP_MULTICAST_IF, &std::get<in_addr>(outgoing),
                     sizeof(in_addr)) != 0) {
      return sender._failure("cannot choose interface " + visible(*interface) + " for");
    }
  }
  if (timeToLive && ::setsockopt(sender._socket, IPPROTO_IP, IP_MULTICAST_TTL, &*timeToLive,
                                 sizeof *timeToLive) != 0) {
    return sender._failure("cannot set the time to live for");
  }
  return sender;
}

Sender::Sender(int socket, const sockaddr_in& destination)
    : _socket(socket), _destination(destination) {}

Sender::Sender(Sender&& other) noexcept
    : _socket(std::exchange(other._socket, -1)), _destination(other._destination) {}

Sender::~Sender() {
  if (_socket >= 0) {
    ::close(_socket);
  }
}

std::variant<std::string, Failure> Sender::localAddress() const {
  // Only a connected socket knows its address, and one that stays connected would report an
  // absent listener as a failure to send.
  sockaddr_in local{};
  socklen_t size = sizeof local;
  sockaddr_in nobody = internetAddress(INADDR_ANY, 0);
  nobody.sin_family = AF_UNSPEC;
  if (::connect(_socket, generic(_destination), sizeof _destination) != 0 ||
      ::getsockname(_socket, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
    return _failure("cannot find the address to announce (--ip gives one) for");
  }
  // Some systems disconnect and call it an error nevertheless.
  std::ignore = ::connect(_socket, generic(nobody), sizeof nobody);
  return dotted(local.sin_addr);
}

std::optional<Failure> Sender::send(std::string_view text) const {
  if (::sendto(_socket, text.data(), text.size(), 0, generic(_destination), sizeof _destination) <
      0) {
    return _failure("cannot send to");
  }
  return std::nullopt;
}

Failure Sender::_failure(const std::string& what) const {
  const std::string why = reason();
  return {FAILED, what + " " + dotted(_destination.sin_addr) + " port " +
                      std::to_string(ntohs(_destination.sin_port)) + ": " + why};
}

}  // namespace ravelin::announce
