#include "check/linux/MembershipCheck.h"

#include <algorithm>
#include <map>

namespace ravelin::check {

namespace {

struct Interface {
  std::string addresses;
  bool isUp = false;
  bool hasMulticast = false;
};

std::map<std::string, Interface> interfacesOf(const std::vector<LocalAddress>& addresses) {
  std::map<std::string, Interface> interfaces;
  for (const LocalAddress& local : addresses) {
    Interface& interface = interfaces[local.interface];
    interface.addresses.append(interface.addresses.empty() ? "" : ", ").append(local.address);
    interface.isUp = local.isUp;
    interface.hasMulticast = local.hasMulticast;
  }
  return interfaces;
}

Finding checkGroup(const std::string& group, const std::string& where, bool agentIsRunning,
                   bool isJoined, Details details) {
  details["group"] = group;
  if (isJoined) {
    return ok("group-joined", where + " has joined group " + group, details);
  }
  if (agentIsRunning) {
    return wrong(
        "group-not-joined",
        where + " has not joined group " + group + ", and hears nothing that is sent to it",
        details);
  }
  return note("group-not-joined-yet",
              where + " has not joined group " + group + ", as no agent is running", details);
}

}  // namespace

Findings checkMemberships(const std::vector<std::string>& groups, bool agentIsRunning,
                          const std::vector<LocalAddress>& addresses,
                          const std::optional<Memberships>& joined) {
  if (groups.empty()) {
    return {};
  }
  if (addresses.empty()) {
    return {wrong("no-interface",
                  "this machine has no IPv4 address but 127.0.0.1, so that no group is joined")};
  }
  Findings found;
  for (const auto& [name, interface] : interfacesOf(addresses)) {
    const std::string where = "interface " + name + " (" + interface.addresses + ")";
    const Details details{{"interface", name}, {"addresses", interface.addresses}};
    if (!interface.isUp) {
      found.push_back(note("interface-down", where + " is down", details));
      continue;
    }
    if (!interface.hasMulticast && name != "lo") {
      found.push_back(
          note("interface-without-multicast", where + " does not carry multicast", details));
      continue;
    }
    if (!joined) {
      continue;
    }
    const auto there = joined->find(name);
    for (const std::string& group : groups) {
      const bool isJoined = there != joined->end() && there->second.contains(group);
      found.push_back(checkGroup(group, where, agentIsRunning, isJoined, details));
    }
  }
  if (!joined) {
    found.push_back(note("groups-unknown", "which groups are joined, the system does not tell"));
  }
  return found;
}

}  // namespace ravelin::check
