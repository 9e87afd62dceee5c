#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace ravelin::platform {

/// How many senders a filter can hold.
inline constexpr std::size_t FILTERED_SENDERS_LIMIT = 32;

/// Has the system drop the datagrams of these IPv4 senders (addresses in host order, no more than
/// the limit) before they take room in the UDP socket's receive buffer; no senders end that. False
/// when the system does not do it.
bool dropDatagramsFrom(int descriptor, std::span<const std::uint32_t> senders);

/// How a UDP socket's receive buffer is doing.
struct ReceiveBuffer {
  /// How many datagrams for the socket the system has dropped so far, for want of room or because
  /// it was told to. The number wraps around.
  std::uint32_t dropped = 0;
  bool isMoreThanHalfFull = false;
};

/// Null when the system does not tell.
std::optional<ReceiveBuffer> receiveBufferOf(int descriptor);

}  // namespace ravelin::platform
