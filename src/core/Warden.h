#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/AtomicProperty.h"
#include "core/Configuration.h"
#include "platform/AddressChangeWatch.h"
#include "platform/PropertyList.h"
#include "platform/RunLoop.h"
#include "platform/SessionActivityWatch.h"

namespace ravelin {

class Controller;
class Server;

/// The agent: owns the controller and the servers, builds the servers from the configuration file,
/// and runs the main thread's run loop. Main thread only, but for the three properties, which any
/// thread may read and replace; the controller and the servers themselves are used and destroyed on
/// the main thread.
class Warden {
 public:
  Warden();
  ~Warden();
  Warden(const Warden&) = delete;
  Warden& operator=(const Warden&) = delete;

  /// Starts everything, runs until gSystemWillTerminate is set, takes everything down, removing
  /// every shortcut, and returns 0.
  int run();

  /// Removes every shortcut. For the handling of the termination signal.
  void systemWillTerminate() const;

  /// One server for each usable entry of the configuration, in its order. A copy of the list; a
  /// server ends when it is neither on the list nor on a copy of it any more.
  [[nodiscard]] std::vector<std::shared_ptr<Server>> serverArray() const {
    return _serverArray.get();
  }
  void setServerArray(std::vector<std::shared_ptr<Server>> serverArray) {
    _serverArray.set(std::move(serverArray));
  }

  /// The controller, or null outside `run`. It becomes the delegate of the servers that are built
  /// from now on.
  [[nodiscard]] std::shared_ptr<Controller> controller() const { return _controller.get(); }
  void setController(std::shared_ptr<Controller> controller) {
    _controller.set(std::move(controller));
  }

  /// The machine's IPv4 addresses on which the servers last joined their groups; by them a change
  /// of addresses is noticed. Empty until then, and kept when the configuration switches joining
  /// off.
  [[nodiscard]] std::vector<std::string> localIpAddresses() const {
    return _localIpAddresses.get();
  }
  void setLocalIpAddresses(std::vector<std::string> localIpAddresses) {
    _localIpAddresses.set(std::move(localIpAddresses));
  }

 protected:
  /// Has the servers rebuilt after changes of the machine's IPv4 addresses; false, with a line in
  /// the log, when the system refuses to report them. A watch from _watchAddresses() is taken over.
  bool _startNetworkInterfaceChangeNotifier(
      std::unique_ptr<platform::AddressChangeWatch> watch = nullptr);
  /// Stops that; does nothing if it has not been started.
  void _stopNetworkInterfaceChangeNotifier();
  /// After a change: rebuilds the servers unless they were built for the current addresses;
  /// otherwise renews their memberships if they may be lost.
  static void NetworkInterfaceNotificationCallback(Warden& warden, bool membershipsMayBeLost);

  /// From the first call until the second, gSystemActive follows whether this login session is the
  /// active one.
  void _registerWorkspaceNotifications();
  void _unregisterWorkspaceNotifications();
  static void _fastUserSwitchHandler(platform::SessionNotification notification);

  static std::optional<platform::PropertyListDictionary> _getConfigDictionary();
  void _initializeServers();
  void _refreshIGMPMembership();
  static std::vector<std::string> _getLocalIPAdresses();

 private:
  /// A join that the system refused. Its address may have been away at that moment only.
  struct RefusedJoin {
    std::weak_ptr<Server> server;
    std::string group;
    std::string address;
  };

  std::unique_ptr<platform::AddressChangeWatch> _watchAddresses(std::string& reason);
  void _lookAtInterfaces();
  void _initializeServersAndStartNotifier();
  void _startServer(const Configuration::Entry& entry, bool joinIGMP);
  void _join(const std::shared_ptr<Server>& server, const std::string& group,
             const std::string& address);
  void _renewMemberships();
  [[nodiscard]] bool _serversAreBuiltFor(const std::vector<std::string>& addresses) const;

  AtomicProperty<std::vector<std::shared_ptr<Server>>> _serverArray;
  AtomicProperty<std::shared_ptr<Controller>> _controller;
  /// Reports changes of the addresses; null while stopped. On macOS a source of the run loop does
  /// that, hence the name.
  std::unique_ptr<platform::AddressChangeWatch> _notificationCFRunLoopSourceRef;
  std::unique_ptr<platform::SessionActivityWatch> _workspaceNotifications;
  AtomicProperty<std::vector<std::string>> _localIpAddresses;
  bool _serversJoin = false;
  bool _addressesChangedWhileBuilding = false;
  std::vector<RefusedJoin> _refusedJoins;
  long IGMPMembershipRefreshRate = 0;
  std::unique_ptr<platform::RunLoop::Timer> IGMPMembershipRefreshTimer;
};

}  // namespace ravelin
