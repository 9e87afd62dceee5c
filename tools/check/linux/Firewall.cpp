#include "check/linux/Firewall.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <set>

#include "check/linux/FirewallWalk.h"

namespace ravelin::check {

namespace {

using Verdict = FirewallAnswer::Verdict;

/// Whether what comes in for this machine passes the chain.
bool looksAtWhatComesIn(const FirewallRules::Name& name, const FirewallRules::Json& chain) {
  static const std::set<std::string> FAMILIES{"ip", "inet", "netdev"};
  static const std::set<std::string> HOOKS{"input", "prerouting", "ingress"};
  return FAMILIES.contains(name[0]) && HOOKS.contains(textIn(chain, "hook")) &&
         textIn(chain, "type") != "nat";
}

Verdict verdictOf(FirewallEnds ends, const std::string& policy) {
  if (ends.goesOn) {
    (policy == "drop" ? ends.drop : ends.accept) = true;
  }
  if (!ends.drop) {
    return Verdict::accepted;
  }
  return ends.accept ? Verdict::unknown : Verdict::dropped;
}

/// A chain that drops for sure counts most, then one that may.
int weight(Verdict verdict) {
  switch (verdict) {
    case Verdict::none:
      return 0;
    case Verdict::accepted:
      return 1;
    case Verdict::unknown:
      return 2;
    case Verdict::dropped:
      return 3;
  }
  return 0;
}

}  // namespace

FirewallAnswer FirewallAnswer::about(const Text& group, std::uint16_t port,
                                     const FirewallRules& rules) {
  FirewallPacket packet{.group = std::nullopt, .port = port};
  if (group) {
    packet.group = ntohl(::inet_addr(group->c_str()));
  }
  FirewallAnswer answer;
  for (const auto& [name, chain] : rules.chains) {
    if (!looksAtWhatComesIn(name, chain.description)) {
      continue;
    }
    const Verdict here =
        verdictOf(FirewallWalk(rules, packet).through(name), textIn(chain.description, "policy"));
    if (weight(here) > weight(answer.verdict)) {
      answer = {.verdict = here, .where = name[0] + " " + name[1] + " " + name[2]};
    }
  }
  return answer;
}

}  // namespace ravelin::check
