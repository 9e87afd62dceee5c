#include "core/Warden.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "core/AgentState.h"
#include "intake/Server.h"
#include "platform/RunLoop.h"
#include "support/Announcements.h"
#include "support/OpenWarden.h"
#include "support/RecordingLog.h"
#include "support/TemporaryHome.h"
#include "support/Udp.h"
#include "support/Waiting.h"
#include "support/linux/OwnNetwork.h"
#include "support/linux/Seccomp.h"

namespace ravelin {
namespace {

namespace fs = std::filesystem;

using platform::RunLoop;
using test::error;
using test::info;
using test::LogLine;
using test::OpenWarden;
using test::RecordingLog;
using test::ReservedPort;
using test::runUntil;
using test::TemporaryHome;
using test::UdpSocket;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

const LogLine STARTED = info("Server has been started!");
const LogLine STOPPED = info("Server has been stopped!");

constexpr const char* GROUP = "239.77.0.1";
constexpr const char* LOOPBACK = "127.0.0.1";

std::string integer(int value) { return "<integer>" + std::to_string(value) + "</integer>"; }
std::string text(const std::string& value) { return "<string>" + value + "</string>"; }
std::string array(const std::string& items) { return "<array>" + items + "</array>"; }
std::string pair(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key>" + value;
}
std::string entry(int port, const std::string& group = GROUP) {
  return array(text(group) + integer(port));
}
std::string addresses(const std::string& entries) {
  return pair("MulticastAddresses", array(entries));
}

class WardenTest : public testing::Test {
 protected:
  ~WardenTest() override {
    gSystemWillTerminate = false;
    gSystemActive = false;
  }

  static void writeFile(const std::string& folder, const std::string& content) {
    fs::create_directories(folder);
    std::ofstream(folder + "/Ravelin Disk Config.plist") << content;
  }

  static std::string propertyList(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">" +
           value + "</plist>\n";
  }

  void configure(const std::string& pairs) const {
    writeFile(home.userSupport(), propertyList("<dict>" + pairs + "</dict>"));
  }

  void configureMachine(const std::string& pairs) const {
    writeFile(home.machineWideSupport(), propertyList("<dict>" + pairs + "</dict>"));
  }

  /// The text under "From" of the configuration in force.
  static Text configuredFrom() {
    const auto dictionary = OpenWarden::_getConfigDictionary();
    if (!dictionary || !dictionary->contains("From")) {
      return std::nullopt;
    }
    return dictionary->find("From")->second.stringValue();
  }

  static std::vector<unsigned long> portsOf(const Warden& warden) {
    std::vector<unsigned long> ports;
    for (const auto& server : warden.serverArray()) {
      ports.push_back(server->port());
    }
    return ports;
  }

  /// Waits for a number of turns of a quick timer.
  static void letTurnsPass(int count) {
    int passed = 0;
    const auto timer = RunLoop::main().scheduleTimer(RunLoop::SMALLEST_INTERVAL, [&] { ++passed; });
    ASSERT_TRUE(runUntil([&] { return passed >= count; }));
  }

  /// Runs the agent, and meanwhile one step after the other, each until it returns true; then it
  /// ends the agent.
  static void runAgent(Warden& warden, const std::vector<std::function<bool()>>& steps) {
    std::size_t next = 0;
    int turnsLeft = 200;
    const auto timer = RunLoop::main().scheduleTimer(RunLoop::Seconds(0.1), [&] {
      if (next < steps.size() && steps[next]()) {
        ++next;
      }
      if (next == steps.size() || --turnsLeft == 0) {
        gSystemWillTerminate = true;
      }
    });
    EXPECT_EQ(warden.run(), 0);
    EXPECT_EQ(next, steps.size()) << "the first steps that were done";
  }

  /// Ends a membership of the first server behind its back, which the next refresh must notice.
  static void loseMembership(const Warden& warden) {
    Server& server = *warden.serverArray().front();
    server.joinMulticastGroup(GROUP, LOOPBACK);
    ip_mreq request{};
    request.imr_multiaddr.s_addr = ::inet_addr(GROUP);
    request.imr_interface.s_addr = ::inet_addr(LOOPBACK);
    ASSERT_EQ(::setsockopt(server.cfSocket()->native(), IPPROTO_IP, IP_DROP_MEMBERSHIP, &request,
                           sizeof request),
              0);
  }

  static bool everyServerHasJoined(const Warden& warden, const std::string& address) {
    const auto servers = warden.serverArray();
    return !servers.empty() && std::ranges::all_of(servers, [&](const auto& server) {
      return server->hasJoinedMulticastGroup(GROUP, address);
    });
  }

  [[nodiscard]] LogLine lostMembership() const {
    return error("Server cannot drop multicast group 239.77.0.1 (source addr 127.0.0.1) at port " +
                 std::to_string(port));
  }

  [[nodiscard]] LogLine refusedJoin() const {
    return error("Server cannot join multicast group 239.77.0.1 at port " + std::to_string(port));
  }

  void configureJoining(const std::string& entries) const {
    configure(pair("JoinIGMP", "<true/>") + pair("IGMPMembershipRefreshRate", integer(3600)) +
              addresses(entries));
  }

  /// Has the first command run right after the line has been logged for the first time, and so on.
  void onLine(const LogLine& line, const std::vector<std::string>& commands) {
    log.then = [line, commands, next = std::size_t{0}](const LogLine& logged) mutable {
      if (logged == line && next < commands.size()) {
        EXPECT_EQ(std::system(("true; " + commands[next++]).c_str()), 0);
      }
    };
  }

  [[nodiscard]] bool isOnDesktop(const std::string& name) const {
    return fs::exists(home.desktop() + "/" + name);
  }

  const TemporaryHome home;
  RecordingLog log;
  const ReservedPort reserved;
  const ReservedPort otherReserved;
  const std::int32_t port = reserved.number();
  const std::int32_t otherPort = otherReserved.number();
  const UdpSocket sender;
  const test::Texts usb{.event = "disk_mounted",
                        .mac = "02:00:00:00:00:01",
                        .ip = "192.168.1.5",
                        .uuid = "1234-ABCD",
                        .label = "USB"};
};

using WardenDeathTest = WardenTest;

// The configuration file.

TEST_F(WardenTest, WithoutFilesThereIsNoConfiguration) {
  EXPECT_FALSE(OpenWarden::_getConfigDictionary().has_value());
}

TEST_F(WardenTest, TheUsersFileComesFirstAndAlone) {
  configure(pair("From", text("user")));
  configureMachine(pair("From", text("machine")) + pair("JoinIGMP", "<true/>"));
  EXPECT_EQ(configuredFrom(), "user");
  EXPECT_FALSE(OpenWarden::_getConfigDictionary()->contains("JoinIGMP"));
}

TEST_F(WardenTest, WithoutAUsersFileTheMachineWideOneCounts) {
  configureMachine(pair("From", text("machine")));
  EXPECT_EQ(configuredFrom(), "machine");
}

TEST_F(WardenTest, AnEmptyDictionaryOfTheUserGivesWayToTheMachineWideFile) {
  configure("");
  configureMachine(pair("From", text("machine")));
  EXPECT_EQ(configuredFrom(), "machine");
  fs::remove_all(home.machineWideSupport());
  EXPECT_FALSE(OpenWarden::_getConfigDictionary().has_value());
}

TEST_F(WardenTest, AnEmptyMachineWideDictionaryIsTheConfiguration) {
  configureMachine("");
  EXPECT_THAT(OpenWarden::_getConfigDictionary(), Optional(IsEmpty()));
}

TEST_F(WardenTest, AUsersFileThatIsNoDictionaryIsLikeNone) {
  configureMachine(pair("From", text("machine")));
  for (const std::string& content :
       {std::string(), std::string("no property list"), propertyList(array(text("x"))),
        propertyList("<dict>" + pair("From", text("user")))}) {
    writeFile(home.userSupport(), content);
    EXPECT_EQ(configuredFrom(), "machine") << content;
  }
  fs::remove(home.userSupport() + "/Ravelin Disk Config.plist");
  fs::create_directory(home.userSupport() + "/Ravelin Disk Config.plist");
  EXPECT_EQ(configuredFrom(), "machine");
}

TEST_F(WardenTest, TheFileIsReadAfreshEveryTime) {
  configure(pair("From", text("one")));
  EXPECT_EQ(configuredFrom(), "one");
  configure(pair("From", text("two")));
  EXPECT_EQ(configuredFrom(), "two");
}

TEST_F(WardenTest, LookingForTheFileCreatesTheSupportFolders) {
  EXPECT_FALSE(OpenWarden::_getConfigDictionary().has_value());
  EXPECT_TRUE(fs::is_directory(home.userSupport()));
  EXPECT_TRUE(fs::is_directory(home.machineWideSupport()));
}

// Building the servers.

TEST_F(WardenTest, ANewWardenHasNothing) {
  const Warden warden;
  EXPECT_THAT(warden.serverArray(), IsEmpty());
  EXPECT_EQ(warden.controller(), nullptr);
  EXPECT_THAT(warden.localIpAddresses(), IsEmpty());
}

TEST_F(WardenTest, ThePropertiesAreReadAsTheyWereSet) {
  OpenWarden warden;
  warden.setLocalIpAddresses({"192.0.2.1", "192.0.2.2"});
  EXPECT_THAT(warden.localIpAddresses(), ElementsAre("192.0.2.1", "192.0.2.2"));
  auto server = std::make_shared<Server>();
  const std::weak_ptr<Server> watched = server;
  warden.setServerArray({std::move(server)});
  EXPECT_EQ(warden.serverArray().front(), watched.lock());
  warden.setServerArray({});
  EXPECT_TRUE(watched.expired());
  const auto controller = std::make_shared<Controller>();
  warden.setController(controller);
  EXPECT_EQ(warden.controller(), controller);
  configure(addresses(entry(port)));
  warden._initializeServers();
  EXPECT_EQ(warden.serverArray().front()->delegate(), controller);
}

TEST_F(WardenTest, AServerThatIsPutOnTheListIsRefreshedAndEndsWithTheNextRebuild) {
  configure(pair("IGMPMembershipRefreshRate", integer(1)));
  OpenWarden warden;
  warden._initializeServers();
  auto server = std::make_shared<Server>();
  server->startOnPort(port);
  warden.setServerArray({std::move(server)});
  loseMembership(warden);
  EXPECT_TRUE(runUntil([&] { return log.count(lostMembership()) > 0; }));
  log.take();
  warden._initializeServers();
  EXPECT_THAT(log.take(), ElementsAre(STOPPED));
}

TEST_F(WardenTest, WithoutConfigurationThereAreNoServersAndNothingIsLogged) {
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(warden.serverArray(), IsEmpty());
  EXPECT_THAT(warden.localIpAddresses(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WardenTest, AddressesThatAreNoArrayOrAnEmptyOneMakeNoServers) {
  for (const std::string& value : {array(""), text("239.0.0.1"), integer(5000),
                                   "<dict>" + pair("a", integer(1)) + "</dict>"}) {
    configure(pair("MulticastAddresses", value));
    OpenWarden warden;
    warden._initializeServers();
    EXPECT_THAT(warden.serverArray(), IsEmpty()) << value;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WardenTest, EveryEntryMakesAServerInTheOrderOfTheFile) {
  configure(addresses(entry(port) + entry(otherPort) + entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(portsOf(warden), ElementsAre(port, otherPort, port));
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, STARTED, STARTED));
}

TEST_F(WardenTest, EntriesThatAreNoPairAreSkippedAndLaterOnesAreNot) {
  const std::string group = text(GROUP);
  configure(addresses(array(group + integer(otherPort) + integer(1)) + array(group) + array("") +
                      group + integer(otherPort) + "<true/>" + "<dict>" + pair("a", group) +
                      pair("b", integer(otherPort)) + "</dict>" + entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(portsOf(warden), ElementsAre(port));
  EXPECT_THAT(log.lines(), ElementsAre(STARTED));
}

TEST_F(WardenTest, APortMayBeATextOrANumberWithAFraction) {
  const std::string group = text(GROUP);
  const std::string number = std::to_string(port);
  configure(addresses(array(group + text(number)) + array(group + text("  " + number + " udp")) +
                      array(group + "<real>" + number + ".75</real>")));
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(portsOf(warden), ElementsAre(port, port, port));
}

TEST_F(WardenTest, AServerThatCouldNotStartStaysOnTheList) {
  const UdpSocket owner("0.0.0.0");
  configure(addresses(entry(owner.port()) + entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(portsOf(warden), ElementsAre(0, port));
  EXPECT_THAT(log.lines(), ElementsAre(error("Server socket cannot be created. Reason: Address "
                                             "already in use"),
                                       STOPPED, STARTED));
}

TEST_F(WardenTest, WithoutJoiningTheGroupsAreIgnored) {
  for (const std::string& join : {std::string(), pair("JoinIGMP", "<false/>"),
                                  pair("JoinIGMP", integer(0)), pair("JoinIGMP", text("NO"))}) {
    configure(join + addresses(entry(port, "not a group") + entry(otherPort)));
    OpenWarden warden;
    log.take();
    warden._initializeServers();
    EXPECT_THAT(portsOf(warden), ElementsAre(port, otherPort));
    for (const auto& server : warden.serverArray()) {
      EXPECT_EQ(server->multicastGroup(), std::nullopt);
      EXPECT_THAT(server->multicastSourceAddresses(), Optional(IsEmpty()));
    }
    EXPECT_THAT(warden.localIpAddresses(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(STARTED, STARTED));
  }
}

TEST_F(WardenTest, WhenJoiningEveryServerJoinsItsGroupOnEveryAddress) {
  if (!test::inOwnNetwork()) {
    return;
  }
  const auto both = ElementsAre(test::FIRST_ADDRESS, test::SECOND_ADDRESS);
  for (const std::string& value : {std::string("<true/>"), integer(1), text("YES")}) {
    configure(pair("JoinIGMP", value) + addresses(entry(port) + entry(otherPort, "239.77.0.2")));
    log.take();
    OpenWarden warden;
    warden._initializeServers();
    EXPECT_THAT(log.lines(), ElementsAre(STARTED, STARTED));
    EXPECT_THAT(portsOf(warden), ElementsAre(port, otherPort));
    EXPECT_THAT(warden.localIpAddresses(), both);
    const auto& servers = warden.serverArray();
    EXPECT_EQ(servers[0]->multicastGroup(), GROUP);
    EXPECT_EQ(servers[1]->multicastGroup(), "239.77.0.2");
    EXPECT_THAT(servers[0]->multicastSourceAddresses(), Optional(both));
    EXPECT_THAT(servers[1]->multicastSourceAddresses(), Optional(both));
  }
}

TEST_F(WardenTest, ARefusedJoinDoesNotStopTheOthers) {
  if (!test::inOwnNetwork()) {
    return;
  }
  configure(pair("JoinIGMP", "<true/>") + addresses(entry(port, "not a group") + entry(otherPort)));
  OpenWarden warden;
  warden._initializeServers();
  const LogLine refused =
      error("Server cannot join multicast group not a group at port " + std::to_string(port));
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, refused, refused, STARTED));
  EXPECT_TRUE(warden.serverArray()[1]->hasJoinedMulticastGroup(GROUP, test::SECOND_ADDRESS));
}

TEST_F(WardenTest, AServerThatCouldNotStartOnlyLogsItsJoins) {
  if (!test::inOwnNetwork()) {
    return;
  }
  const UdpSocket owner("0.0.0.0");
  configure(pair("JoinIGMP", "<true/>") + addresses(entry(owner.port())));
  OpenWarden warden;
  warden._initializeServers();
  const LogLine refused = error("Server cannot join multicast group 239.77.0.1 at port 0");
  EXPECT_THAT(log.lines(), ElementsAre(error("Server socket cannot be created. Reason: Address "
                                             "already in use"),
                                       STOPPED, refused, refused));
}

TEST_F(WardenTest, JoiningWithoutAUsableEntryTakesNoAddresses) {
  configure(pair("JoinIGMP", "<true/>") + addresses(array(text(GROUP))));
  OpenWarden warden;
  warden._initializeServers();
  EXPECT_THAT(warden.localIpAddresses(), IsEmpty());
}

TEST_F(WardenTest, ARebuildReadsTheFileAgainAndStopsTheOldServersFirst) {
  configure(addresses(entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  log.take();
  configure(addresses(entry(port) + entry(otherPort)));
  warden._initializeServers();
  EXPECT_THAT(portsOf(warden), ElementsAre(port, otherPort));
  EXPECT_THAT(log.take(), ElementsAre(STOPPED, STARTED, STARTED));
  fs::remove_all(home.userSupport());
  warden._initializeServers();
  EXPECT_THAT(warden.serverArray(), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre(STOPPED, STOPPED));
}

TEST_F(WardenDeathTest, APortOutsideTheRangeEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto message =
      AllOf(HasSubstr("Server::startOnAddress"), HasSubstr("1 <= andPort && andPort <= 65535"));
  const std::string group = text(GROUP);
  for (const std::string& value :
       {integer(0), integer(70000), integer(-1), text("no port"), text(""), array("")}) {
    configure(addresses(array(group + value)));
    OpenWarden warden;
    EXPECT_DEATH(warden._initializeServers(), message) << value;
  }
}

// The refresh of the memberships.

TEST_F(WardenTest, WithoutARateTheMembershipsAreRefreshedAtOnce) {
  configure(addresses(entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  loseMembership(warden);
  EXPECT_TRUE(runUntil([&] { return log.count(lostMembership()) > 0; }));
}

TEST_F(WardenTest, TheRateIsANumberOrATextAndMayHaveAFraction) {
  for (const std::string& rate : {integer(1), text("1"), std::string("<real>1.9</real>")}) {
    configure(pair("IGMPMembershipRefreshRate", rate) + addresses(entry(port)));
    OpenWarden warden;
    warden._initializeServers();
    loseMembership(warden);
    EXPECT_TRUE(runUntil([&] { return log.count(lostMembership()) > 0; })) << rate;
    log.take();
  }
}

TEST_F(WardenTest, ALongRateIsWaitedFor) {
  configure(pair("IGMPMembershipRefreshRate", integer(3600)) + addresses(entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  loseMembership(warden);
  letTurnsPass(8);
  EXPECT_EQ(log.count(lostMembership()), 0U);
}

TEST_F(WardenTest, ARebuildEndsTheOldTimer) {
  configure(addresses(entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  configure(pair("IGMPMembershipRefreshRate", integer(3600)) + addresses(entry(port)));
  warden._initializeServers();
  loseMembership(warden);
  letTurnsPass(8);
  EXPECT_EQ(log.count(lostMembership()), 0U);
}

TEST_F(WardenTest, TheTimerRunsWithoutServersToo) {
  OpenWarden warden;
  warden._initializeServers();
  letTurnsPass(3);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WardenTest, ARefreshedMembershipIsWhatItWas) {
  configure(addresses(entry(port)));
  OpenWarden warden;
  warden._initializeServers();
  Server& server = *warden.serverArray().front();
  server.joinMulticastGroup(GROUP, LOOPBACK);
  log.take();
  letTurnsPass(5);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
  // A member still: to join again is refused.
  server.joinMulticastGroup(GROUP, LOOPBACK);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(WardenTest, TheTimerEndsWithTheWarden) {
  {
    OpenWarden warden;
    warden._initializeServers();
  }
  letTurnsPass(3);
}

// The agent's life.

TEST_F(WardenTest, TheRunningAgentMakesShortcutsAndRemovesThemInTheEnd) {
  configure(addresses(entry(port) + entry(otherPort)));
  Warden warden;
  const std::string other = "event:disk_status;mac:m;ip:192.168.1.6;uuid:u;label:Other";
  runAgent(warden, {[&] {
                      EXPECT_TRUE(gSystemActive);
                      EXPECT_THAT(portsOf(warden), ElementsAre(port, otherPort));
                      EXPECT_NE(warden.controller(), nullptr);
                      for (const auto& server : warden.serverArray()) {
                        EXPECT_EQ(server->delegate(), warden.controller());
                      }
                      EXPECT_TRUE(sender.send(test::datagram(usb), port));
                      EXPECT_TRUE(sender.send(other, otherPort));
                      return true;
                    },
                    [&] { return isOnDesktop("USB.app") && isOnDesktop("Other.app"); }});
  EXPECT_TRUE(fs::is_empty(home.desktop()));
  EXPECT_EQ(warden.controller(), nullptr);
  EXPECT_THAT(warden.serverArray(), IsEmpty());
  EXPECT_FALSE(gSystemActive);
}

TEST_F(WardenTest, AnnouncementsArriveOnEveryJoinedInterface) {
  if (!test::inOwnNetwork()) {
    return;
  }
  configure(pair("JoinIGMP", "<true/>") + pair("IGMPMembershipRefreshRate", integer(3600)) +
            addresses(entry(port) + entry(otherPort)));
  Warden warden;
  const auto announce = [&](const char* from, const std::string& name) {
    const in_addr outgoing{.s_addr = ::inet_addr(from)};
    const UdpSocket device(from);
    EXPECT_EQ(
        ::setsockopt(device.descriptor(), IPPROTO_IP, IP_MULTICAST_IF, &outgoing, sizeof outgoing),
        0);
    EXPECT_TRUE(
        device.send("event:disk_mounted;mac:m;ip:i;uuid:" + name + ";label:" + name, port, GROUP));
  };
  runAgent(warden, {[&] {
                      for (const auto& server : warden.serverArray()) {
                        EXPECT_EQ(server->delegate(), warden.controller());
                        EXPECT_THAT(
                            server->multicastSourceAddresses(),
                            Optional(ElementsAre(test::FIRST_ADDRESS, test::SECOND_ADDRESS)));
                      }
                      announce(test::FIRST_ADDRESS, "One");
                      announce(test::SECOND_ADDRESS, "Two");
                      return true;
                    },
                    [&] { return isOnDesktop("One.app") && isOnDesktop("Two.app"); }});
  EXPECT_TRUE(fs::is_empty(home.desktop()));
}

// What changes while the agent starts, before it is told of changes.

TEST_F(WardenTest, WithoutJoiningAnAddressThatComesMeanwhileRebuildsNothing) {
  if (!test::inOwnNetwork()) {
    return;
  }
  configure(addresses(entry(port)));
  onLine(STARTED, {"ip address add 192.0.2.99/24 dev first"});
  Warden warden;
  runAgent(warden, {[&] { return true; }, [&] { return true; }});
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, STOPPED));
}

TEST_F(WardenTest, AnAddressThatComesMeanwhileIsJoinedByEveryServer) {
  if (!test::inOwnNetwork()) {
    return;
  }
  configureJoining(entry(port) + entry(otherPort));
  onLine(STARTED, {"", "ip address add 192.0.2.99/24 dev lo"});
  Warden warden;
  runAgent(warden, {[&] { return everyServerHasJoined(warden, "192.0.2.99"); }});
  EXPECT_THAT(log.lines(),
              ElementsAre(STARTED, STARTED, STOPPED, STOPPED, STARTED, STARTED, STOPPED, STOPPED));
}

TEST_F(WardenTest, AnAddressThatIsAwayWhenItIsToBeJoinedAndComesBackIsJoined) {
  if (!test::inOwnNetwork()) {
    return;
  }
  // The second address of an interface is refused, which is known before the next is joined.
  ASSERT_EQ(std::system("ip address add 192.0.2.99/24 dev first"), 0);
  configureJoining(entry(port));
  onLine(refusedJoin(), {"ip address del 198.51.100.7/24 dev second",
                         "ip address add 198.51.100.7/24 dev second"});
  Warden warden;
  runAgent(warden, {[&] {
             EXPECT_THAT(warden.serverArray().front()->multicastSourceAddresses(),
                         Optional(ElementsAre(test::FIRST_ADDRESS, test::SECOND_ADDRESS)));
             return true;
           }});
  // Nothing is rebuilt for that; what was refused is tried once more.
  EXPECT_THAT(log.lines(),
              ElementsAre(STARTED, refusedJoin(), refusedJoin(), refusedJoin(), STOPPED));
}

TEST_F(WardenTest, AnAddressThatMovesToAnotherInterfaceMeanwhileIsJoinedThere) {
  if (!test::inOwnNetwork()) {
    return;
  }
  ASSERT_EQ(std::system("ip link add third type veth peer name fourth && ip link set third up && "
                        "ip link set fourth up"),
            0);
  configureJoining(entry(port) + entry(otherPort));
  onLine(STARTED, {"",
                   "ip address del 198.51.100.7/24 dev second && "
                   "ip address add 198.51.100.7/24 dev third"});
  Warden warden;
  runAgent(warden, {[&] {
             for (const auto& server : warden.serverArray()) {
               ip_mreqn request{};
               request.imr_multiaddr.s_addr = ::inet_addr(GROUP);
               request.imr_ifindex = static_cast<int>(::if_nametoindex("third"));
               EXPECT_EQ(::setsockopt(server->cfSocket()->native(), IPPROTO_IP, IP_DROP_MEMBERSHIP,
                                      &request, sizeof request),
                         0);
             }
             return true;
           }});
  // The first server's membership there was of its former interface.
  EXPECT_THAT(log.lines(),
              ElementsAre(STARTED, STARTED,
                          error("Server cannot drop multicast group 239.77.0.1 (source addr "
                                "198.51.100.7) at port " +
                                std::to_string(port)),
                          STOPPED, STOPPED));
}

TEST_F(WardenTest, AJoinThatIsRefusedForGoodRebuildsNothing) {
  if (!test::inOwnNetwork()) {
    return;
  }
  ASSERT_EQ(std::system("ip address add 192.0.2.99/24 dev first"), 0);
  configureJoining(entry(port));
  Warden warden;
  runAgent(warden, {[&] { return true; }, [&] { return true; }});
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, refusedJoin(), STOPPED));
}

TEST_F(WardenDeathTest, WhereTheSystemTellsOfNoChangesTheAddressesAreComparedAllTheSame) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  if (!test::inOwnNetwork()) {
    return;
  }
  configureJoining(entry(port) + entry(otherPort));
  EXPECT_EXIT(
      {
        // A socket with the options of the watch's, which nothing else opens.
        EXPECT_TRUE(test::refuse(
            {__NR_socket, {{0, AF_NETLINK}, {1, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK}}}, EPERM));
        onLine(STARTED, {"", "ip address add 192.0.2.99/24 dev lo"});
        Warden warden;
        runAgent(warden, {[&] { return everyServerHasJoined(warden, "192.0.2.99"); }});
        EXPECT_THAT(log.lines(),
                    ElementsAre(STARTED, STARTED,
                                error("SCDynamicStoreSetNotificationKeys() failed: Operation not "
                                      "permitted"),
                                STOPPED, STOPPED, STARTED, STARTED, STOPPED, STOPPED));
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(WardenTest, AnAgentThatIsToEndAtOnceDoes) {
  configure(addresses(entry(port)));
  gSystemWillTerminate = true;
  Warden warden;
  EXPECT_EQ(warden.run(), 0);
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, STOPPED));
  EXPECT_EQ(warden.controller(), nullptr);
}

TEST_F(WardenTest, TheServersEndBeforeTheShortcuts) {
  configure(addresses(entry(port)));
  Warden warden;
  runAgent(warden, {[&] { return sender.send(test::datagram(usb), port); },
                    [&] { return warden.controller()->mountedDisks().size() == 1; },
                    [&] {
                      // The removal will log that there is nothing to remove.
                      return fs::remove_all(home.desktop() + "/USB.app") > 0;
                    }});
  EXPECT_THAT(log.lines(),
              ElementsAre(STARTED, info(test::receivedLine(test::datagram(usb), usb)), STOPPED,
                          error("Error when deleting alias file. Reason: No such file or "
                                "directory")));
}

TEST_F(WardenTest, TheAgentEndsOnAHandOver) {
  Warden warden;
  RunLoop::main().perform([] { gSystemWillTerminate = true; });
  EXPECT_EQ(warden.run(), 0);
}

TEST_F(WardenTest, AtTerminationEveryShortcutGoesWhileTheAgentStillRuns) {
  configure(addresses(entry(port)));
  Warden warden;
  runAgent(warden, {[&] { return sender.send(test::datagram(usb), port); },
                    [&] { return warden.controller()->mountedDisks().size() == 1; },
                    [&] {
                      EXPECT_TRUE(isOnDesktop("USB.app"));
                      warden.systemWillTerminate();
                      EXPECT_FALSE(isOnDesktop("USB.app"));
                      EXPECT_THAT(warden.controller()->mountedDisks(), IsEmpty());
                      EXPECT_FALSE(gSystemWillTerminate);
                      return true;
                    }});
}

TEST_F(WardenTest, TerminationOfAnAgentThatNeverRanDoesNothing) {
  Warden warden;
  warden.systemWillTerminate();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WardenTest, AnAgentMayRunAgain) {
  configure(addresses(entry(port)));
  Warden warden;
  for (int run = 0; run < 2; ++run) {
    gSystemWillTerminate = false;
    runAgent(warden, {[&] { return sender.send(test::datagram(usb), port); },
                      [&] { return isOnDesktop("USB.app"); }});
    EXPECT_FALSE(isOnDesktop("USB.app"));
  }
}

}  // namespace
}  // namespace ravelin
