#include "Listener.h"

#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>

#include "EndSignals.h"
#include "core/Constants.h"
#include "core/LocalAddresses.h"
#include "intake/SenderAddress.h"
#include "platform/AddressChangeWatch.h"
#include "platform/RunLoop.h"
#include "platform/RunLoopSocket.h"

namespace ravelin::check {

using platform::RunLoop;

namespace {

/// Sockets of one user that share a port in this way are given what is sent to the machine alone in
/// turns. An agent that starts later is to get it all.
void leaveToLaterSockets(const Server& server) {
  const int off = 0;
  ::setsockopt(server.cfSocket()->native(), SOL_SOCKET, SO_REUSEPORT, &off, sizeof off);
}

/// Joins the group on each interface on which it is not joined yet. Returns the names of those.
std::string joinEverywhere(Server& server, const std::string& group) {
  std::string where;
  for (const LocalAddress& local : localAddresses()) {
    const auto joinedBefore = server.multicastSourceAddresses()->size();
    server.joinMulticastGroup(group, local.address);
    if (server.multicastSourceAddresses()->size() > joinedBefore) {
      where.append(where.empty() ? "" : ", ").append(local.interface);
    }
  }
  return where;
}

}  // namespace

Findings Listener::start(const std::vector<Target>& targets, const IsHeld& isHeld) {
  Findings found;
  std::set<std::pair<std::string, std::uint16_t>> groups;
  std::set<std::uint16_t> ports;
  for (const Target& target : targets) {
    ports.insert(target.port);
    if (target.group && groups.emplace(*target.group, target.port).second) {
      found.push_back(_listenToGroup(target));
    }
  }
  for (const std::uint16_t port : ports) {
    const Target target{.group = std::nullopt, .port = port};
    found.push_back(isHeld(port)
                        ? note("alone-not-seen",
                               "what is sent to this machine alone, or to all of its "
                               "network, at port " +
                                   std::to_string(port) +
                                   " is not seen here: it goes to the agent, or to whoever "
                                   "else has the port",
                               target.details())
                        : _listenAlone(port));
  }
  return found;
}

/// A socket at the address of the group gets nothing but what is sent to the group.
Finding Listener::_listenToGroup(const Target& target) {
  Server& server = _servers.emplace_back();
  server.startOnAddress(target.group, target.port);
  if (server.port() == 0) {
    return _refused(target);
  }
  const std::string where = joinEverywhere(server, *target.group);
  server.setDelegate({std::shared_ptr<void>(), this});
  _targets[&server] = target;
  if (where.empty()) {
    return wrong("group-not-heard",
                 target.described() + " cannot be heard, as no interface can join the group",
                 target.details());
  }
  return ok("group-heard", target.described() + ", on " + where, target.details());
}

Finding Listener::_listenAlone(std::uint16_t port) {
  const Target target{.group = std::nullopt, .port = port};
  Server& server = _servers.emplace_back();
  server.startOnPort(port);
  if (server.port() == 0) {
    return _refused(target);
  }
  leaveToLaterSockets(server);
  server.setDelegate({std::shared_ptr<void>(), this});
  _targets[&server] = target;
  return ok("alone-heard",
            target.described() +
                " of this machine alone, until an agent starts, which then gets it instead",
            target.details());
}

Finding Listener::_refused(const Target& target) {
  _servers.pop_back();
  return wrong("not-heard", target.described() + " cannot be listened to: " + _log.takeLastError(),
               target.details());
}

std::optional<Failure> Listener::run(std::optional<std::chrono::seconds> time) {
  const auto begin = std::chrono::steady_clock::now();
  RunLoop& loop = RunLoop::current();
  const EndSignals signals(loop, [this] { _hasEnded = true; });
  const auto handling = loop.scheduleTimer(RunLoop::Seconds(DISK_EVENT_HANDLER_INTERVAL), [this] {
    _agent.handleWaiting(std::chrono::system_clock::now());
  });
  const auto forgetting =
      loop.scheduleTimer(RunLoop::Seconds(DISK_UPDATE_TIME_CHECKER_INTERVAL),
                         [this] { _agent.forgetSilent(std::chrono::system_clock::now()); });
  std::string reason;
  const auto addresses =
      platform::AddressChangeWatch::start(loop, [this] { _joinNewInterfaces(); }, reason);
  const auto ending = time ? loop.scheduleTimer(*time, [this] { _hasEnded = true; }) : nullptr;
  while (!_hasEnded && !_failure) {
    loop.runOnce(RunLoop::DISTANT_FUTURE);
  }
  _targets.clear();
  _servers.clear();
  return _failure ? _failure : _transcript.end(std::chrono::steady_clock::now() - begin);
}

/// Also one that has gone and come back, whose memberships have gone with it.
void Listener::_joinNewInterfaces() {
  for (Server& server : _servers) {
    if (const Text& group = _targets.at(&server).group) {
      joinEverywhere(server, *group);
    }
  }
}

void Listener::server(Server& server, std::span<const std::byte> receivedData,
                      std::span<const std::byte> fromAddress) {
  if (_hasEnded || _failure) {
    return;
  }
  const auto judgement = _agent.take(receivedData, senderIn(fromAddress));
  _failure = _transcript.add({.time = std::chrono::system_clock::now(),
                              .sender = textOrNull(Server::displayAddressForAddress(fromAddress)),
                              .target = _targets.at(&server),
                              .payload = receivedData},
                             judgement);
}

}  // namespace ravelin::check
