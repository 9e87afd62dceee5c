#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <vector>

#include "Finding.h"
#include "ImaginedAgent.h"
#include "LogCollector.h"
#include "Target.h"
#include "Transcript.h"
#include "common/Failure.h"
#include "intake/Server.h"

namespace ravelin::check {

/// Listens to what the agent listens to, by the agent's own servers, and takes nothing away from
/// it: what is sent to a group comes to everybody who has joined it, but what is sent to this
/// machine alone comes to one socket, so that is listened to only where nobody else does. Main
/// thread.
class Listener : private ServerDelegate {
 public:
  /// Tells whether somebody takes all that comes to the port.
  using IsHeld = std::function<bool(std::uint16_t port)>;

  explicit Listener(Transcript& transcript) : _transcript(transcript) {}
  ~Listener() override = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// What is listened to from now on, and what is not seen. Something is wrong where a socket
  /// cannot be had.
  Findings start(const std::vector<Target>& targets, const IsHeld& isHeld);

  /// Whether anything is listened to.
  [[nodiscard]] bool hears() const { return !_servers.empty(); }

  /// Prints what comes in, for so long or until SIGINT or SIGTERM comes. Null unless it cannot be
  /// printed.
  std::optional<Failure> run(std::optional<std::chrono::seconds> time);

 private:
  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override;

  Finding _listenToGroup(const Target& target);
  Finding _listenAlone(std::uint16_t port);
  Finding _refused(const Target& target);
  void _joinNewInterfaces();

  Transcript& _transcript;
  LogCollector _log;
  ImaginedAgent _agent;
  std::list<Server> _servers;
  std::map<const Server*, Target> _targets;
  std::optional<Failure> _failure;
  bool _hasEnded = false;
};

}  // namespace ravelin::check
