#include "check/linux/MachineCheck.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/ConfigurationFile.h"
#include "check/Target.h"
#include "check/linux/AgentCheck.h"
#include "check/linux/DesktopCheck.h"
#include "check/linux/FirewallCheck.h"
#include "check/linux/MembershipCheck.h"
#include "check/linux/PortCheck.h"
#include "check/linux/ProgramsCheck.h"
#include "core/LocalAddresses.h"

namespace ravelin::check {

namespace {

void append(Findings& all, Findings further) {
  std::ranges::move(further, std::back_inserter(all));
}

Findings checkNetwork(const std::vector<Target>& targets, bool agentIsRunning,
                      const std::vector<Process>& all) {
  const auto sockets = udpSockets();
  std::set<std::uint16_t> ports;
  std::set<std::string> groups;
  for (const Target& target : targets) {
    ports.insert(target.port);
    if (target.group) {
      groups.insert(*target.group);
    }
  }
  Findings found;
  for (const std::uint16_t port : ports) {
    append(found, checkPort(port, ::getuid(), sockets, all));
  }
  append(found, checkMemberships({groups.begin(), groups.end()}, agentIsRunning, localAddresses(),
                                 memberships()));
  append(found, checkFirewall(targets));
  return found;
}

}  // namespace

Report checkMachine() {
  Report report;
  const auto files = ConfigurationFiles::find();
  report.add("configuration", files.findings());
  const auto all = processes();
  const bool agentIsRunning = !agentsOf(::getuid(), all).empty();
  report.add("agent", checkAgents(::getuid(), all));
  if (files.inForce != nullptr) {
    const auto targets = targetsOf(Configuration::of(files.inForce->dictionary));
    report.add("network", checkNetwork(targets, agentIsRunning, all));
  }
  report.add("desktop", checkDesktop(agentIsRunning));
  report.add("programs", checkPrograms());
  return report;
}

}  // namespace ravelin::check
