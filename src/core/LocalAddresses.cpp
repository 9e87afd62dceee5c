#include "core/LocalAddresses.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace ravelin {

std::vector<LocalAddress> localAddresses() {
  std::vector<LocalAddress> addresses;
  ifaddrs* interfaces = nullptr;
  if (::getifaddrs(&interfaces) != 0) {
    return addresses;
  }
  for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    sockaddr_in local{};
    std::memcpy(&local, entry->ifa_addr, sizeof local);
    const std::uint32_t address = ntohl(local.sin_addr.s_addr);
    if (address == 0) {
      continue;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", address >> 24U, address >> 16U & 0xFFU,
                  address >> 8U & 0xFFU, address & 0xFFU);
    if (std::strcmp(text.data(), "127.0.0.1") != 0) {
      addresses.push_back({.address = text.data(),
                           .interface = entry->ifa_name,
                           .isUp = (entry->ifa_flags & IFF_UP) != 0,
                           .hasMulticast = (entry->ifa_flags & IFF_MULTICAST) != 0});
    }
  }
  ::freeifaddrs(interfaces);
  return addresses;
}

}  // namespace ravelin
