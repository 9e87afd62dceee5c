// What the agent does when the machine's addresses change, where that cannot be seen from outside.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/AgentState.h"
#include "intake/Server.h"
#include "platform/RunLoop.h"
#include "support/OpenWarden.h"
#include "support/RecordingLog.h"
#include "support/TemporaryHome.h"
#include "support/Udp.h"
#include "support/linux/OwnNetwork.h"
#include "support/linux/Seccomp.h"

namespace ravelin {
namespace {

namespace fs = std::filesystem;

using test::error;
using test::FIRST_ADDRESS;
using test::info;
using test::inOwnNetwork;
using test::LogLine;
using test::OpenWarden;
using test::SECOND_ADDRESS;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* GROUP = "239.77.0.1";
const LogLine STARTED = info("Server has been started!");
const LogLine STOPPED = info("Server has been stopped!");

class WardenWatcherTest : public testing::Test {
 protected:
  void TearDown() override { gSystemWillTerminate = false; }

  void configure(bool joining) const {
    fs::create_directories(home.userSupport());
    std::ofstream(home.userSupport() + "/Ravelin Disk Config.plist")
        << R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)"
        << "<key>IGMPMembershipRefreshRate</key><integer>3600</integer><key>JoinIGMP</key>"
        << (joining ? "<true/>" : "<false/>")
        << "<key>MulticastAddresses</key><array><array><string>" << GROUP << "</string><integer>"
        << reserved.number() << "</integer></array></array></dict></plist>";
  }

  static std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
  }

  /// Ends the first server's membership on the interface with the address, behind its back.
  void loseMembership(const char* address) const {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = ::inet_addr(GROUP);
    request.imr_interface.s_addr = ::inet_addr(address);
    ASSERT_EQ(::setsockopt(warden->serverArray().front()->cfSocket()->native(), IPPROTO_IP,
                           IP_DROP_MEMBERSHIP, &request, sizeof request),
              0);
  }

  const test::TemporaryHome home;
  test::RecordingLog log;
  const test::ReservedPort reserved;
  std::unique_ptr<OpenWarden> warden = std::make_unique<OpenWarden>();
};

TEST_F(WardenWatcherTest, ARefusalIsLoggedWithItsReasonAndHarmless) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        EXPECT_TRUE(test::refuse({__NR_socket, {{0, AF_NETLINK}}}, EPERM));
        EXPECT_FALSE(warden->_startNetworkInterfaceChangeNotifier());
        EXPECT_THAT(log.take(),
                    ElementsAre(error("SCDynamicStoreSetNotificationKeys() failed: Operation not "
                                      "permitted")));
        warden->_stopNetworkInterfaceChangeNotifier();
        EXPECT_THAT(log.take(), IsEmpty());
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(WardenWatcherTest, MayBeStoppedAnyNumberOfTimes) {
  ASSERT_NE(&platform::RunLoop::main(), nullptr);
  const auto before = openDescriptors();
  warden->_stopNetworkInterfaceChangeNotifier();
  EXPECT_TRUE(warden->_startNetworkInterfaceChangeNotifier());
  EXPECT_EQ(openDescriptors(), before + 1);
  warden->_stopNetworkInterfaceChangeNotifier();
  EXPECT_EQ(openDescriptors(), before);
  warden->_stopNetworkInterfaceChangeNotifier();
  EXPECT_TRUE(warden->_startNetworkInterfaceChangeNotifier());
  warden.reset();
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WardenWatcherTest, TheAddressesAreThoseOfAllInterfacesButTheUsualOneOfTheLoopback) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  EXPECT_THAT(warden->localIpAddresses(), UnorderedElementsAre(FIRST_ADDRESS, SECOND_ADDRESS));
  ASSERT_EQ(std::system("ip address add 127.0.0.2/8 dev lo && ip link set first down && "
                        "ip address add 0.0.0.0/8 dev lo 2>/dev/null; "
                        "ip address add 192.0.2.20/32 dev second"),
            0);
  warden->_initializeServers();
  EXPECT_THAT(warden->localIpAddresses(),
              UnorderedElementsAre(FIRST_ADDRESS, SECOND_ADDRESS, "127.0.0.2", FIRST_ADDRESS));
}

TEST_F(WardenWatcherTest, WithJoiningOffEveryNoticeRebuildsWhereThereIsAnAddress) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(false);
  warden->_initializeServers();
  log.take();
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_THAT(log.take(), ElementsAre(STOPPED, STARTED, STOPPED, STARTED));
  EXPECT_THAT(warden->localIpAddresses(), IsEmpty());
  ASSERT_EQ(std::system("ip link del first"), 0);
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WardenWatcherTest, AfterTerminationANoticeDoesNothing) {
  if (!inOwnNetwork()) {
    return;
  }
  for (const bool joining : {false, true}) {
    configure(joining);
    gSystemWillTerminate = false;
    warden->_initializeServers();
    if (joining) {
      loseMembership(FIRST_ADDRESS);
    }
    gSystemWillTerminate = true;
    log.take();
    OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
    OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
    EXPECT_THAT(log.take(), IsEmpty());
  }
}

TEST_F(WardenWatcherTest, UnchangedAddressesRebuildNothingAndRenewWhatMayHaveGone) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  const Server* const server = warden->serverArray().front().get();
  const auto joined = server->multicastSourceAddresses();
  loseMembership(SECOND_ADDRESS);
  log.take();
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
  EXPECT_THAT(log.take(), IsEmpty());
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_THAT(log.take(), ElementsAre(error("Server cannot drop multicast group 239.77.0.1 "
                                            "(source addr 198.51.100.7) at port " +
                                            std::to_string(reserved.number()))));
  EXPECT_EQ(warden->serverArray().front().get(), server);
  // It can be dropped, so it was there again; and that it was twice on the list does no harm.
  for (int time = 0; time < 2; ++time) {
    OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
    EXPECT_THAT(log.take(), IsEmpty());
  }
}

TEST_F(WardenWatcherTest, AChangeRebuildsOnceAndIsThenKnown) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  log.take();
  ASSERT_EQ(std::system("ip address del 192.0.2.20/24 dev first && "
                        "ip address add 192.0.2.21/24 dev first"),
            0);
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_THAT(log.take(), ElementsAre(STOPPED, STARTED));
  EXPECT_THAT(warden->localIpAddresses(), UnorderedElementsAre("192.0.2.21", SECOND_ADDRESS));
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WardenWatcherTest, AnAddressThatIsAwayAtARefreshIsJoinedWhenItIsBack) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  log.take();
  const LogLine refused = error("Server cannot join multicast group 239.77.0.1 at port " +
                                std::to_string(reserved.number()));
  ASSERT_EQ(std::system("ip address del 198.51.100.7/24 dev second"), 0);
  warden->_refreshIGMPMembership();
  EXPECT_THAT(log.take(), ElementsAre(refused));
  ASSERT_EQ(std::system("ip address add 198.51.100.7/24 dev second"), 0);
  const auto server = warden->serverArray().front();
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_EQ(warden->serverArray().front(), server);
  EXPECT_TRUE(server->hasJoinedMulticastGroup(GROUP, SECOND_ADDRESS));
  EXPECT_THAT(log.take(), IsEmpty());
  // And is tried no more: to join it twice would be refused.
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, true);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WardenWatcherTest, TheAddressesOfNowAreComparedWithTheProperty) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  warden->setLocalIpAddresses({FIRST_ADDRESS, "203.0.113.99"});
  log.take();
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
  EXPECT_THAT(log.take(), ElementsAre(STOPPED, STARTED));
  EXPECT_THAT(warden->localIpAddresses(), ElementsAre(FIRST_ADDRESS, SECOND_ADDRESS));
}

TEST_F(WardenWatcherTest, TheAddressesStayWhenJoiningIsSwitchedOff) {
  if (!inOwnNetwork()) {
    return;
  }
  configure(true);
  warden->_initializeServers();
  configure(false);
  warden->_initializeServers();
  EXPECT_THAT(warden->localIpAddresses(), ElementsAre(FIRST_ADDRESS, SECOND_ADDRESS));
  log.take();
  OpenWarden::NetworkInterfaceNotificationCallback(*warden, false);
  EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
}  // namespace ravelin
