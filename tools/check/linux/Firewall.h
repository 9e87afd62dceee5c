#pragma once

#include <cstdint>
#include <string>

#include "base/Text.h"
#include "check/linux/FirewallRules.h"

namespace ravelin::check {

/// What becomes of announcements in the firewall. Any thread.
struct FirewallAnswer {
  enum class Verdict {
    none,  ///< no chain looks at what comes in
    accepted,
    dropped,
    unknown,  ///< it depends on the sender, the interface, or a rule that is not understood
  };
  Verdict verdict = Verdict::none;
  std::string where;  ///< the chain that drops or may drop them, as "inet filter input"

  /// About UDP datagrams from the network to the port of a group, or of this machine alone for a
  /// null group.
  static FirewallAnswer about(const Text& group, std::uint16_t port, const FirewallRules& rules);
};

}  // namespace ravelin::check
