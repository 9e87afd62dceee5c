#include "intake/SenderAddress.h"

#include <netinet/in.h>

#include <cstring>

namespace ravelin {

std::uint32_t senderIn(std::span<const std::byte> rawAddress) {
  sockaddr_in sender{};
  if (rawAddress.size() < sizeof sender) {
    return 0;
  }
  std::memcpy(&sender, rawAddress.data(), sizeof sender);
  return sender.sin_family == AF_INET ? ntohl(sender.sin_addr.s_addr) : 0;
}

}  // namespace ravelin
