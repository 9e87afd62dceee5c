#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "common/Failure.h"

namespace ravelin::announce {

/// Sends datagrams to one host or group.
class Sender {
 public:
  /// The interface, by name or IPv4 address, and the time to live are for groups only; absent, the
  /// system chooses.
  static std::variant<Sender, Failure> open(const std::string& host, std::uint16_t port,
                                            const std::optional<std::string>& interface,
                                            std::optional<std::uint8_t> timeToLive);
  ~Sender();
  Sender(Sender&& other) noexcept;
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  Sender& operator=(Sender&&) = delete;

  /// The IPv4 address that datagrams leave from, in dotted form.
  [[nodiscard]] std::variant<std::string, Failure> localAddress() const;

  /// Sends the text as one datagram. Null on success, which does not mean that anybody received it.
  [[nodiscard]] std::optional<Failure> send(std::string_view text) const;

 private:
  explicit Sender(int socket, const sockaddr_in& destination);

  [[nodiscard]] Failure _failure(const std::string& what) const;

  int _socket;
  sockaddr_in _destination;
};

}  // namespace ravelin::announce
