#include "platform/SenderFilter.h"

namespace ravelin::platform {

// This system filters no datagrams for a program, and does not tell how many it has dropped.

bool dropDatagramsFrom(int /*descriptor*/, std::span<const std::uint32_t> /*senders*/) {
  return false;
}

std::optional<ReceiveBuffer> receiveBufferOf(int /*descriptor*/) { return std::nullopt; }

}  // namespace ravelin::platform
