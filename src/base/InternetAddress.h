#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <string>

namespace ravelin {

/// Writes its own length into a socket address, on the systems whose addresses hold it.
template <class Address>
void setLength(Address& address) {
  if constexpr (requires { address.sin_len; }) {
    address.sin_len = sizeof address;
  }
}

/// The IPv4 socket address of a host and a port, both in network byte order. Any thread.
[[nodiscard]] inline sockaddr_in internetAddress(in_addr_t host, in_port_t port) {
  sockaddr_in address{};
  setLength(address);
  address.sin_family = AF_INET;
  address.sin_port = port;
  address.sin_addr.s_addr = host;
  return address;
}

/// Whether the text is an IPv4 address of four decimal numbers without zeros in front. Any thread.
[[nodiscard]] inline bool isDottedAddress(const std::string& text) {
  in_addr address{};
  // It reads up to a NUL only.
  return text.find('\0') == std::string::npos && ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

}  // namespace ravelin
