#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Text.h"
#include "intake/LoudSenders.h"
#include "intake/ServerDelegate.h"
#include "platform/DatagramReader.h"
#include "platform/RunLoopSocket.h"

namespace ravelin {

/// One UDP/IPv4 socket on one port, which hands every datagram to its delegate, and the multicast
/// group memberships of that socket. Everything happens on the thread that starts it, served by
/// that thread's run loop. Failures are written to the log and nothing else.
class Server {
 public:
  Server() = default;
  /// Stops the server.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Starts on all local addresses.
  void startOnPort(std::int32_t port);

  /// Listens on the port (1 to 65535, a precondition) of a local IPv4 address in dotted form, or
  /// of all of them. The server must not be started (a precondition). After a failure, which two
  /// log lines tell, the port is 0.
  void startOnAddress(const Text& address, std::int32_t andPort);

  /// Closes the socket, if there is one, which ends its memberships; the group and the addresses
  /// that were joined stay readable.
  void stop();

  /// Joins the group on the local interface with that address, or on one that the system chooses.
  /// If the system refuses, or without a socket, that is logged and nothing changes.
  void joinMulticastGroup(const std::string& group, const Text& withSourceAddress);
  void joinMulticastGroup(const std::string& group);

  /// Leaves the group on that interface. If the system refuses, or without a socket, that is logged
  /// and nothing changes. The group stays the server's group.
  void dropMulticastGroup(const std::string& group, const Text& withSourceAddress);

  /// Whether the group is the server's and is joined on the interface with that address.
  [[nodiscard]] bool hasJoinedMulticastGroup(const std::string& group,
                                             const std::string& withSourceAddress) const;

  /// Host and port of a raw socket address, as in 192.0.2.10:5000; IPv4 addresses that are wrapped
  /// in IPv6 ones are unwrapped. Null for a null or unreadable address.
  [[nodiscard]] static Text displayAddressForAddress(
      std::optional<std::span<const std::byte>> address);

  /// The port listened on, or 0 while not started.
  [[nodiscard]] unsigned long port() const { return _port; }

  /// Takes the datagrams; without a delegate they are read and dropped.
  [[nodiscard]] const std::shared_ptr<ServerDelegate>& delegate() const { return _delegate; }
  void setDelegate(std::shared_ptr<ServerDelegate> delegate) { _delegate = std::move(delegate); }

  /// The group last joined, or null.
  [[nodiscard]] const Text& multicastGroup() const { return _multicastGroup; }

  /// The addresses on which the group is joined, oldest first; null before the first start. The
  /// live list: copy it to change memberships while walking it.
  [[nodiscard]] const std::optional<std::vector<std::string>>& multicastSourceAddresses() const {
    return _multicastSourceAddresses;
  }

  /// The run loop's socket, or null while not started.
  [[nodiscard]] platform::RunLoopSocket* cfSocket() const { return _cfSocket; }
  void setCfSocket(platform::RunLoopSocket* cfSocket) { _cfSocket = cfSocket; }

  /// Sends a datagram to a raw socket address, or without one. The agent itself sends nothing.
  void _sendData(std::optional<std::span<const std::byte>> data,
                 std::optional<std::span<const std::byte>> toAddress) const;

 protected:
  /// What the run loop's socket calls, which must be the server's (a precondition). Returns what
  /// `_readData` returns.
  static bool SocketReadCallback(const platform::RunLoopSocket& socket, Server& server);

 private:
  /// On failure `error`, where given, holds the error number.
  bool _setupSocketListeningOnAddress(const Text& address, unsigned long andPort, int* error);
  /// Whether there may be more datagrams to read.
  bool _readData();
  [[nodiscard]] bool _changeMembership(int option, const std::string& group,
                                       const Text& sourceAddress) const;

  unsigned long _port = 0;
  std::atomic<platform::RunLoopSocket*> _cfSocket = nullptr;
  std::shared_ptr<platform::DatagramReader> _reader;  // while there is a socket
  LoudSenders _loudSenders;
  Text _multicastGroup;
  std::optional<std::vector<std::string>> _multicastSourceAddresses;
  std::shared_ptr<ServerDelegate> _delegate;
};

}  // namespace ravelin
