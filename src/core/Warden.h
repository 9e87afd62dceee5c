#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AddressChangeWatch.h"
#include "platform/PropertyList.h"
#include "platform/RunLoop.h"
#include "platform/SessionActivityWatch.h"

namespace ravelin {

class Controller;
class Server;

/// The agent: owns the controller and the servers, builds the servers from the configuration file,
/// and runs the main thread's run loop. Main thread only.
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
  void systemWillTerminate();

  /// One server for each usable entry of the configuration, in its order.
  [[nodiscard]] const std::vector<std::unique_ptr<Server>>& serverArray() const {
    return _serverArray;
  }

  /// The controller, or null outside `run`.
  [[nodiscard]] const std::shared_ptr<Controller>& controller() const { return _controller; }

  /// The machine's IPv4 addresses for which the servers were last built; empty while joining is
  /// off.
  [[nodiscard]] const std::vector<std::string>& localIpAddresses() const {
    return _localIpAddresses;
  }

 protected:
  /// Has the servers rebuilt after changes of the machine's IPv4 addresses; false, with a line in
  /// the log, when the system refuses to tell of them.
  bool _startNetworkInterfaceChangeNotifier();
  /// Ends that; nothing the second time.
  void _stopNetworkInterfaceChangeNotifier();
  /// After a change: builds the servers anew unless they were built for the addresses of now.
  static void NetworkInterfaceNotificationCallback(Warden& mounter, bool anAddressWentAway);

  /// Keeps gSystemActive true while this login session is the active one, until the second is
  /// called.
  void _registerWorkspaceNotifications();
  void _unregisterWorkspaceNotifications();
  static void _fastUserSwitchHandler(platform::SessionNotification notification);

  static std::optional<platform::PropertyListDictionary> _getConfigDictionary();
  void _initializeServers();
  void _refreshIGMPMembership();
  static std::vector<std::string> _getLocalIPAdresses();

 private:
  void _startServer(const platform::PropertyListArray& entry, bool joinIGMP);
  [[nodiscard]] bool _serversAreBuiltFor(const std::vector<std::string>& addresses) const;

  std::vector<std::unique_ptr<Server>> _serverArray;
  std::shared_ptr<Controller> _controller;
  std::unique_ptr<platform::AddressChangeWatch> _notificationCFRunLoopSourceRef;
  std::unique_ptr<platform::SessionActivityWatch> _workspaceNotifications;
  std::vector<std::string> _localIpAddresses;
  bool _addressesChangedWhileBuilding = false;
  std::int32_t IGMPMembershipRefreshRate = 0;
  std::unique_ptr<platform::RunLoop::Timer> IGMPMembershipRefreshTimer;
};

}  // namespace ravelin
