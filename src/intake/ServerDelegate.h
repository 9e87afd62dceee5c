#pragma once

#include <cstddef>
#include <span>

namespace ravelin {

class Server;

/// Takes the datagrams of servers.
class ServerDelegate {
 public:
  virtual ~ServerDelegate() = default;

  /// Takes one datagram, never empty, and its sender's raw socket address (16 bytes for IPv4). The
  /// bytes last for the call only. On the thread on which the server was started.
  virtual void server(Server& server, std::span<const std::byte> receivedData,
                      std::span<const std::byte> fromAddress) = 0;
};

}  // namespace ravelin
