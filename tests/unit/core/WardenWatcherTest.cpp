// What the agent does when the machine's addresses change, where that cannot be seen from outside.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "OwnNetwork.h"
#include "RecordingLog.h"
#include "TemporaryHome.h"
#include "Udp.h"
#include "core/SystemState.h"
#include "core/Warden.h"
#include "intake/Server.h"
#include "platform/RunLoop.h"

namespace ravelin {
namespace {

namespace fs = std::filesystem;

using test::error;
using test::FIRST_ADDRESS;
using test::info;
using test::inOwnNetwork;
using test::LogLine;
using test::SECOND_ADDRESS;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* GROUP = "239.77.0.1";
const LogLine STARTED = info("Server has been started!");
const LogLine STOPPED = info("Server has been stopped!");

class OpenWarden final : public Warden {
 public:
  using Warden::_getLocalIPAdresses;
  using Warden::_initializeServers;
  using Warden::_startNetworkInterfaceChangeNotifier;
  using Warden::_stopNetworkInterfaceChangeNotifier;
  using Warden::NetworkInterfaceNotificationCallback;
};

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

/// From now on this process is refused the sockets that tell of the network.
bool forbidNetlink() {
  constexpr auto load = [](std::size_t offset) {
    return sock_filter{.code = BPF_LD | BPF_W | BPF_ABS,
                       .jt = 0,
                       .jf = 0,
                       .k = static_cast<std::uint32_t>(offset)};
  };
  constexpr auto skipUnless = [](std::uint32_t value, std::uint8_t count) {
    return sock_filter{.code = BPF_JMP | BPF_JEQ | BPF_K, .jt = 0, .jf = count, .k = value};
  };
  constexpr auto answer = [](std::uint32_t value) {
    return sock_filter{.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = value};
  };
  std::array<sock_filter, 6> filter = {
      load(offsetof(seccomp_data, nr)),   skipUnless(__NR_socket, 3),
      load(offsetof(seccomp_data, args)), skipUnless(AF_NETLINK, 1),
      answer(SECCOMP_RET_ERRNO | EPERM),  answer(SECCOMP_RET_ALLOW)};
  const sock_fprog program{.len = filter.size(), .filter = filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(WardenWatcherTest, ARefusalIsLoggedWithItsReasonAndHarmless) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        EXPECT_TRUE(forbidNetlink());
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
  EXPECT_THAT(OpenWarden::_getLocalIPAdresses(),
              UnorderedElementsAre(FIRST_ADDRESS, SECOND_ADDRESS));
  ASSERT_EQ(std::system("ip address add 127.0.0.2/8 dev lo && ip link set first down && "
                        "ip address add 0.0.0.0/8 dev lo 2>/dev/null; "
                        "ip address add 192.0.2.20/32 dev second"),
            0);
  EXPECT_THAT(OpenWarden::_getLocalIPAdresses(),
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

}  // namespace
}  // namespace ravelin
