#include "core/Warden.h"

#include <algorithm>
#include <utility>

#include "controller/Controller.h"
#include "core/AgentState.h"
#include "core/DirectoryFinder.h"
#include "core/LocalAddresses.h"
#include "core/Logger.h"
#include "intake/Server.h"

namespace ravelin {

using platform::PropertyListDictionary;
using platform::RunLoop;

namespace {

std::optional<PropertyListDictionary> dictionaryInFolder(const Text& folder) {
  return folder ? platform::dictionaryWithContentsOfFile(*folder + "/" +
                                                         std::string(Configuration::FILE_NAME))
                : std::nullopt;
}

}  // namespace

Warden::Warden() = default;

Warden::~Warden() {
  setController(nullptr);
  setServerArray({});
  _stopNetworkInterfaceChangeNotifier();
}

void Warden::systemWillTerminate() const {
  if (const auto current = controller()) {
    current->unmountAll();
  }
}

int Warden::run() {
  setController(std::make_shared<Controller>());
  setServerArray({});
  _registerWorkspaceNotifications();
  _initializeServersAndStartNotifier();
  gSystemActive = true;
  while (!gSystemWillTerminate) {
    RunLoop::current().runOnce(RunLoop::DISTANT_FUTURE);
  }
  IGMPMembershipRefreshTimer.reset();
  _stopNetworkInterfaceChangeNotifier();
  setServerArray({});
  if (const auto current = controller()) {
    current->unmountAll();
  }
  gSystemActive = false;
  _unregisterWorkspaceNotifications();
  setController(nullptr);
  return 0;
}

std::unique_ptr<platform::AddressChangeWatch> Warden::_watchAddresses(std::string& reason) {
  return platform::AddressChangeWatch::start(
      RunLoop::current(), [this] { _lookAtInterfaces(); }, reason);
}

void Warden::_lookAtInterfaces() {
  const auto& watch = _notificationCFRunLoopSourceRef;
  NetworkInterfaceNotificationCallback(*this, watch != nullptr && watch->membershipsMayBeLost());
}

/// Servers that join must not miss what changes after their addresses have been taken and before
/// the notifier is there to tell of it, even if it has changed back by then: so their notifier
/// watches from the start.
void Warden::_initializeServersAndStartNotifier() {
  std::string ignored;  // the notifier itself will be refused likewise, and that is logged
  auto watch = _watchAddresses(ignored);
  _initializeServers();
  if (!_serversJoin) {
    watch.reset();
  }
  _startNetworkInterfaceChangeNotifier(std::move(watch));
  if (_serversJoin) {
    _lookAtInterfaces();
  }
}

bool Warden::_startNetworkInterfaceChangeNotifier(
    std::unique_ptr<platform::AddressChangeWatch> watch) {
  if (!watch) {
    std::string reason;
    watch = _watchAddresses(reason);
    if (!watch) {
      Logger::logMessage("SCDynamicStoreSetNotificationKeys() failed: " + reason, LogTypeError);
      return false;
    }
  }
  _notificationCFRunLoopSourceRef = std::move(watch);
  return true;
}

void Warden::_stopNetworkInterfaceChangeNotifier() { _notificationCFRunLoopSourceRef.reset(); }

void Warden::NetworkInterfaceNotificationCallback(Warden& warden, bool membershipsMayBeLost) {
  const bool isBuilt = warden._serversAreBuiltFor(_getLocalIPAdresses());
  if (gSystemWillTerminate) {
    return;
  }
  if (!isBuilt) {
    warden._initializeServers();
  } else if (membershipsMayBeLost) {
    // An address has been away and is back, but on an interface that may be another one, even if it
    // has the same name: the memberships have gone with the old one. Dropping them fails then, and
    // is logged.
    warden._renewMemberships();
  }
}

/// Order and repetition do not count, as long as there are as many addresses as before.
bool Warden::_serversAreBuiltFor(const std::vector<std::string>& addresses) const {
  const auto builtFor = localIpAddresses();
  return addresses.size() == builtFor.size() && !_addressesChangedWhileBuilding &&
         std::ranges::all_of(builtFor, [&](const std::string& address) {
           return std::ranges::find(addresses, address) != addresses.end();
         });
}

void Warden::_registerWorkspaceNotifications() {
  _workspaceNotifications =
      platform::SessionActivityWatch::start(RunLoop::current(), _fastUserSwitchHandler);
}

void Warden::_unregisterWorkspaceNotifications() { _workspaceNotifications.reset(); }

void Warden::_fastUserSwitchHandler(platform::SessionNotification notification) {
  gSystemActive = notification != platform::SessionNotification::didResignActive;
}

std::optional<PropertyListDictionary> Warden::_getConfigDictionary() {
  auto dictionary = dictionaryInFolder(DirectoryFinder::UserApplicationSupportDirectory());
  if (dictionary && !dictionary->empty()) {
    return dictionary;
  }
  return dictionaryInFolder(DirectoryFinder::LocalApplicationSupportDirectory());
}

void Warden::_initializeServers() {
  const auto config = Configuration::of(_getConfigDictionary());
  IGMPMembershipRefreshRate = config.igmpMembershipRefreshRate;
  IGMPMembershipRefreshTimer.reset();
  IGMPMembershipRefreshTimer = RunLoop::current().scheduleTimer(
      RunLoop::Seconds(IGMPMembershipRefreshRate), [this] { _refreshIGMPMembership(); });
  // The old servers go first, so that their ports are free again.
  setServerArray({});
  _serversJoin = false;
  _addressesChangedWhileBuilding = false;
  _refusedJoins.clear();
  for (const Configuration::Entry& entry : config.multicastAddresses) {
    _startServer(entry, config.joinIGMP);
  }
}

void Warden::_startServer(const Configuration::Entry& entry, bool joinIGMP) {
  auto server = std::make_shared<Server>();
  server->startOnPort(entry.port);
  auto servers = serverArray();
  if (joinIGMP) {
    const std::string group = textOrNull(entry.group);
    const auto addresses = _getLocalIPAdresses();
    // The servers before this one have not joined on these, and the notice of the change is yet to
    // come.
    _addressesChangedWhileBuilding |= !servers.empty() && addresses != localIpAddresses();
    setLocalIpAddresses(addresses);
    _serversJoin = true;
    for (const std::string& address : addresses) {
      _join(server, group, address);
    }
  }
  server->setDelegate(controller());
  servers.push_back(std::move(server));
  setServerArray(std::move(servers));
}

void Warden::_join(const std::shared_ptr<Server>& server, const std::string& group,
                   const std::string& address) {
  server->joinMulticastGroup(group, address);
  if (!server->hasJoinedMulticastGroup(group, address)) {
    _refusedJoins.push_back({.server = server, .group = group, .address = address});
  }
}

/// What was joined is joined again, and what was refused is tried once more.
void Warden::_renewMemberships() {
  const auto refusedBefore = std::exchange(_refusedJoins, {});
  _refreshIGMPMembership();
  for (const RefusedJoin& refused : refusedBefore) {
    if (const auto server = refused.server.lock()) {
      _join(server, refused.group, refused.address);
    }
  }
}

void Warden::_refreshIGMPMembership() {
  for (const auto& server : serverArray()) {
    const Text group = server->multicastGroup();
    const auto addresses = server->multicastSourceAddresses();
    if (!group || !addresses) {
      continue;
    }
    for (const std::string& address : *addresses) {
      server->dropMulticastGroup(*group, address);
      _join(server, *group, address);
    }
  }
}

std::vector<std::string> Warden::_getLocalIPAdresses() {
  std::vector<std::string> addresses;
  for (LocalAddress& local : localAddresses()) {
    addresses.push_back(std::move(local.address));
  }
  return addresses;
}

}  // namespace ravelin
