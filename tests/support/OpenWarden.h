#pragma once

#include "core/Warden.h"

namespace ravelin::test {

/// The real agent, whose steps can be taken one by one, outside `run`.
class OpenWarden final : public Warden {
 public:
  using Warden::_getConfigDictionary;
  using Warden::_initializeServers;
  using Warden::_refreshIGMPMembership;
  using Warden::_registerWorkspaceNotifications;
  using Warden::_startNetworkInterfaceChangeNotifier;
  using Warden::_stopNetworkInterfaceChangeNotifier;
  using Warden::_unregisterWorkspaceNotifications;
  using Warden::NetworkInterfaceNotificationCallback;
};

}  // namespace ravelin::test
