#include "check/linux/PortCheck.h"

#include <algorithm>
#include <set>
#include <string>

#include "base/Text.h"
#include "check/LogCollector.h"
#include "check/linux/AgentCheck.h"
#include "intake/Server.h"

namespace ravelin::check {

namespace {

/// Why a server cannot have the port; null where it can.
Text reasonAgainst(std::uint16_t port, bool isHeldEverywhere) {
  // Where somebody takes all that comes to the port, a second socket on all addresses would take
  // some of it for a moment. One on an address that nobody sends to is refused or not all the same.
  // Where nobody does, one on all addresses takes nothing from those on one.
  constexpr const char* UNUSED = "127.255.255.254";
  LogCollector log;
  Server server;
  server.startOnAddress(isHeldEverywhere ? Text(UNUSED) : std::nullopt, port);
  if (server.port() != 0) {
    return std::nullopt;
  }
  const std::string line = log.takeLastError();
  constexpr std::string_view BEFORE = "Reason: ";
  const std::size_t at = line.find(BEFORE);
  return at == std::string::npos ? line : line.substr(at + BEFORE.size());
}

bool holds(const Process& process, const UdpSocket& socket) {
  return process.sockets && process.sockets->contains(socket.inode);
}

std::string described(const Process& process) {
  return process.name + " (process " + std::to_string(process.id) + " of " +
         nameOfUser(process.user) + ")";
}

/// The process that holds the socket; null where none shows it.
const Process* holderOf(const UdpSocket& socket, const std::vector<Process>& all) {
  const auto holder =
      std::ranges::find_if(all, [&](const Process& process) { return holds(process, socket); });
  return holder == all.end() ? nullptr : &*holder;
}

/// The agent of the user that holds the socket, or that probably does: what a sandboxed one holds
/// does not show. Null where there is none.
const Process* agentWith(const UdpSocket& socket, const std::vector<Process>& agents,
                         const std::vector<Process>& all) {
  const Process* const holder = holderOf(socket, all);
  const auto agent = std::ranges::find_if(agents, [&](const Process& one) {
    return holder != nullptr ? one.id == holder->id : !one.sockets && one.user == socket.user;
  });
  return agent == agents.end() ? nullptr : &*agent;
}

/// Who holds the port besides the agents of the user, in words.
std::set<std::string> othersAt(std::uint16_t port, const std::vector<Process>& agents,
                               const std::vector<UdpSocket>& sockets,
                               const std::vector<Process>& all) {
  std::set<std::string> others;
  for (const UdpSocket& socket : sockets) {
    if (socket.port == port && agentWith(socket, agents, all) == nullptr) {
      const Process* const holder = holderOf(socket, all);
      others.insert(holder != nullptr ? described(*holder)
                                      : "a program of " + nameOfUser(socket.user));
    }
  }
  return others;
}

std::string joined(const std::set<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all.append(all.empty() ? "" : ", ").append(text);
  }
  return all;
}

/// The agent of the user that listens on the port; null where none does.
const Process* agentAt(std::uint16_t port, const std::vector<Process>& agents,
                       const std::vector<UdpSocket>& sockets, const std::vector<Process>& all) {
  for (const UdpSocket& socket : sockets) {
    const Process* const agent =
        socket.port == port && socket.isEverywhere ? agentWith(socket, agents, all) : nullptr;
    if (agent != nullptr) {
      return agent;
    }
  }
  return nullptr;
}

}  // namespace

bool isHeldEverywhere(std::uint16_t port, const std::optional<std::vector<UdpSocket>>& sockets) {
  return !sockets || std::ranges::any_of(*sockets, [port](const UdpSocket& socket) {
    return socket.port == port && socket.isEverywhere;
  });
}

Findings checkPort(std::uint16_t port, uid_t user,
                   const std::optional<std::vector<UdpSocket>>& sockets,
                   const std::vector<Process>& all) {
  Findings found;
  const std::string name = "port " + std::to_string(port);
  Details details{{"port", std::to_string(port)}};
  const auto known = sockets.value_or(std::vector<UdpSocket>());
  const auto agents = agentsOf(user, all);
  const auto others = othersAt(port, agents, known, all);
  if (!others.empty()) {
    details["holders"] = joined(others);
  }
  if (const Process* const agent = agentAt(port, agents, known, all)) {
    found.push_back(ok("port-of-agent",
                       "the agent (process " + std::to_string(agent->id) + ") listens on " + name,
                       details));
  } else if (const Text reason = reasonAgainst(port, isHeldEverywhere(port, sockets))) {
    found.push_back(wrong("port-refused",
                          name + " cannot be had: " + *reason +
                              (others.empty() ? "" : "; it is held by " + joined(others)),
                          details));
    return found;
  } else if (!agents.empty()) {
    found.push_back(wrong("port-not-of-agent",
                          "the agent does not listen on " + name +
                              ", as if it had been started with another configuration: end it and "
                              "start it again",
                          details));
  } else {
    found.push_back(ok("port-free", name + " can be had", details));
  }
  if (!others.empty()) {
    found.push_back(note("port-shared",
                         name + " is also held by " + joined(others) +
                             ", which may get what is sent to this machine alone",
                         details));
  }
  return found;
}

}  // namespace ravelin::check
