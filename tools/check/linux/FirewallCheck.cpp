#include "check/linux/FirewallCheck.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "base/Text.h"
#include "check/linux/Firewall.h"
#include "platform/ChildProcess.h"
#include "platform/Service.h"

namespace ravelin::check {

namespace {

constexpr std::chrono::seconds PATIENCE{10};

Finding notRead(const std::string& why) {
  return note("firewall-not-read", "no firewall was looked at: " + why);
}

Text nft() {
  for (const char* path : {"/usr/sbin/nft", "/sbin/nft", "/usr/bin/nft", "/bin/nft"}) {
    if (::access(path, X_OK) == 0) {
      return path;
    }
  }
  return std::nullopt;
}

/// What it prints as JSON; null where it fails. Where rules are managed by iptables, too, it says
/// so on standard error, in the middle of it.
Text rulesetBy(const std::string& program) {
  using Output = platform::ChildProcesses::Output;
  const auto result = platform::service<platform::ChildProcesses>().run(
      "/bin/sh", {"-c", "exec \"$0\" -j list ruleset 2>/dev/null", program}, Output::standardOutput,
      PATIENCE);
  return result.succeeded() ? Text(result.output) : std::nullopt;
}

Finding findingOf(const Target& target, const FirewallAnswer& answer) {
  using Verdict = FirewallAnswer::Verdict;
  Details details = target.details();
  details["chain"] = answer.where;
  const std::string what = "UDP from the network to " + target.described();
  switch (answer.verdict) {
    case Verdict::none:
      return ok("firewall-none", "no firewall of nftables looks at " + what, target.details());
    case Verdict::accepted:
      return ok("firewall-accepts", "the firewall accepts " + what, details);
    case Verdict::dropped:
      return wrong("firewall-drops",
                   "the firewall drops " + what + ", in the chain " + answer.where, details);
    case Verdict::unknown:
      return note("firewall-unknown",
                  "whether the firewall accepts " + what +
                      " depends on more than is known here, in the chain " + answer.where,
                  details);
  }
  return {};
}

}  // namespace

Findings checkFirewall(const std::vector<Target>& targets) {
  const Text program = nft();
  if (!program) {
    return {notRead("the program nft is not installed")};
  }
  try {
    const Text ruleset = rulesetBy(*program);
    if (!ruleset) {
      return {notRead(::geteuid() == 0 ? *program + " does not list the rules"
                                       : "only root may read its rules")};
    }
    const auto rules = FirewallRules::of(*ruleset);
    Findings found;
    std::ranges::transform(targets, std::back_inserter(found), [&](const Target& target) {
      return findingOf(target, FirewallAnswer::about(target.group, target.port, rules));
    });
    return found;
  } catch (const std::runtime_error& error) {
    return {notRead(error.what())};
  }
}

}  // namespace ravelin::check
