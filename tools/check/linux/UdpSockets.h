#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace ravelin::check {

/// A UDP socket of this machine that has a port.
struct UdpSocket {
  std::uint16_t port = 0;
  bool isEverywhere = false;  ///< it takes what is sent to any address, IPv4 ones included
  std::uint32_t user = 0;     ///< who opened it
  std::uint64_t inode = 0;    ///< by which it is found among the descriptors of processes
};

/// The sockets in a table of the form of /proc/net/udp or udp6. Lines that are not understood are
/// passed over. Any thread.
[[nodiscard]] std::vector<UdpSocket> udpSocketsIn(std::string_view table);

/// Those of the network that this process is in; null where the system does not tell.
[[nodiscard]] std::optional<std::vector<UdpSocket>> udpSockets();

}  // namespace ravelin::check
