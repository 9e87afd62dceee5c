#pragma once

#include <string>
#include <vector>

namespace ravelin {

/// An IPv4 address of this machine.
struct LocalAddress {
  std::string address;    ///< in dotted form
  std::string interface;  ///< the name of the one that has it
  bool isUp = false;
  bool hasMulticast = false;
};

/// The IPv4 addresses on which the agent joins its groups: all but 127.0.0.1, in the order of the
/// system. Empty also where the system does not tell. Any thread.
[[nodiscard]] std::vector<LocalAddress> localAddresses();

}  // namespace ravelin
