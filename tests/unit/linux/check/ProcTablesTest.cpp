#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check/linux/AgentCheck.h"
#include "check/linux/MembershipCheck.h"
#include "check/linux/Memberships.h"
#include "check/linux/PortCheck.h"
#include "check/linux/Processes.h"
#include "check/linux/UdpSockets.h"
#include "support/Udp.h"
#include "support/linux/CheckedFile.h"

namespace ravelin::check {
namespace {

using test::codesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* UDP =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode ref pointer drops             \n"
    " 1221: 00000000:13D5 00000000:0000 07 00000000:00000000 00:00000000 00000000  1000        0 "
    "4711 2 0000000000000000 0         \n"
    " 1222: 0100007F:13D6 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 "
    "4712 2 0000000000000000 0         \n"
    "what is this\n"
    " 1223: 00000000000000000000000000000000:13D7 00000000000000000000000000000000:0000 07 "
    "00000000:00000000 00:00000000 00000000     0        0 4713 2 0000000000000000 0\n";

constexpr const char* IGMP =
    "Idx\tDevice    : Count Querier\tGroup    Users Timer\tReporter\n"
    "1\tlo        :     1      V3\n"
    "\t\t\t\t010000E0     1 0:00000000\t\t0\n"
    "2\teth0      :     2      V3\n"
    "\t\t\t\t014DFFEF     1 0:00000000\t\t0\n"
    "\t\t\t\tjunk     1 0:00000000\t\t0\n"
    "3\twlp0s20f3u1u2:     2      V3\n"
    "\t\t\t\t014DFFEF     1 0:00000000\t\t0\n";

std::vector<UdpSocket> sockets() { return udpSocketsIn(UDP); }

Process process(pid_t id, const std::string& name, uid_t user, std::set<std::uint64_t> inodes) {
  Process made;
  made.id = id;
  made.name = name;
  made.user = user;
  made.sockets = std::move(inodes);
  made.isAgent = name.starts_with("ravelin-disk-ag");
  return made;
}

TEST(ProcTablesTest, SocketsAreReadFromTheTable) {
  const auto found = sockets();
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].port, 5077);
  EXPECT_TRUE(found[0].isEverywhere);
  EXPECT_EQ(found[0].user, 1000U);
  EXPECT_EQ(found[0].inode, 4711U);
  EXPECT_FALSE(found[1].isEverywhere);
  EXPECT_EQ(found[2].port, 5079);
  EXPECT_TRUE(found[2].isEverywhere);
}

TEST(ProcTablesTest, OneOfOurSocketsIsAmongThem) {
  const test::UdpSocket mine;
  const auto found = udpSockets();
  ASSERT_TRUE(found);
  const auto at = std::ranges::find(
      *found, mine.port(), [](const UdpSocket& socket) { return std::int32_t{socket.port}; });
  ASSERT_NE(at, found->end());
  EXPECT_FALSE(at->isEverywhere);
  EXPECT_EQ(at->user, ::getuid());
  const auto all = processes();
  const auto self = std::ranges::find(all, ::getpid(), &Process::id);
  ASSERT_NE(self, all.end());
  EXPECT_EQ(self->name, "ravelin-disk-unit-tests");
  EXPECT_FALSE(self->isAgent);
  EXPECT_FALSE(self->isElsewhere);
  ASSERT_TRUE(self->sockets);
  EXPECT_TRUE(self->sockets->contains(at->inode));
}

TEST(ProcTablesTest, GroupsAreReadFromTheTable) {
  const auto joined = membershipsIn(IGMP);
  EXPECT_THAT(joined.at("lo"), ElementsAre("224.0.0.1"));
  EXPECT_THAT(joined.at("eth0"), ElementsAre("239.255.77.1"));
  EXPECT_THAT(joined.at("wlp0s20f3u1u2"), ElementsAre("239.255.77.1"));
}

TEST(AgentCheckTest, OneAgentOfTheUserIsRight) {
  auto elsewhere = process(4, "ravelin-disk-agent", 1000, {});
  elsewhere.isElsewhere = true;
  std::vector<Process> all{process(1, "init", 0, {}), elsewhere};
  EXPECT_THAT(codesOf(checkAgents(1000, all)), ElementsAre("wrong agent-not-running"));
  all.push_back(process(5, "ravelin-disk-agent", 1000, {}));
  EXPECT_THAT(codesOf(checkAgents(1000, all)), ElementsAre("ok agent-running"));
  all.push_back(process(6, "ravelin-disk-ag", 33, {}));
  EXPECT_THAT(codesOf(checkAgents(1000, all)),
              ElementsAre("ok agent-running", "note agent-of-another-user"));
  all.push_back(process(7, "ravelin-disk-agent", 1000, {}));
  all.push_back(process(8, "ravelin-disk-agent", 1000, {}));
  const auto found = checkAgents(1000, all);
  EXPECT_EQ(found.front().code, "agents-several");
  EXPECT_THAT(found.front().sentence, HasSubstr("processes 5, 7 and 8"));
}

TEST(PortCheckTest, ThePortOfTheAgentIsNotTried) {
  const std::vector all{process(5, "ravelin-disk-agent", 1000, {4711})};
  EXPECT_THAT(codesOf(checkPort(5077, 1000, sockets(), all)), ElementsAre("ok port-of-agent"));
}

TEST(PortCheckTest, WhatASandboxedAgentHoldsDoesNotShow) {
  auto agent = process(5, "ravelin-disk-ag", 1000, {});
  agent.sockets = std::nullopt;
  EXPECT_THAT(codesOf(checkPort(5077, 1000, sockets(), {agent})), ElementsAre("ok port-of-agent"));
  // Somebody else shows as the holder of this one.
  const test::ReservedPort reserved;
  const auto port = static_cast<std::uint16_t>(reserved.number());
  const UdpSocket held{.port = port, .isEverywhere = true, .user = 1000, .inode = 4711};
  EXPECT_THAT(codesOf(checkPort(port, 1000, {{held}}, {agent, process(6, "other", 1000, {4711})})),
              ElementsAre("wrong port-not-of-agent", "note port-shared"));
}

TEST(PortCheckTest, WhoElseHasThePortIsNamed) {
  const std::vector all{process(5, "ravelin-disk-agent", 1000, {4711}),
                        process(6, "avahi", 33, {4714}), process(7, "dns", 33, {1})};
  auto more = sockets();
  more.push_back({.port = 5077, .isEverywhere = true, .user = 33, .inode = 4714});
  more.push_back({.port = 5077, .isEverywhere = true, .user = 54321, .inode = 4715});
  const auto found = checkPort(5077, 1000, more, all);
  ASSERT_THAT(codesOf(found), ElementsAre("ok port-of-agent", "note port-shared"));
  EXPECT_THAT(found[1].sentence, HasSubstr("a program of 54321, avahi (process 6 of "));
}

TEST(PortCheckTest, APortThatSomebodyHasAloneIsRefused) {
  const test::UdpSocket other;
  const auto found =
      checkPort(static_cast<std::uint16_t>(other.port()), ::getuid(), udpSockets(), processes());
  ASSERT_THAT(codesOf(found), ElementsAre("wrong port-refused"));
  EXPECT_THAT(found[0].sentence, HasSubstr("Address already in use; it is held by "
                                           "ravelin-disk-unit-tests (process "));
}

TEST(PortCheckTest, APortThatNobodyHasCanBeHad) {
  std::int32_t port = 0;
  {
    const test::UdpSocket other;
    port = other.port();
  }
  EXPECT_THAT(codesOf(checkPort(static_cast<std::uint16_t>(port), ::getuid(), udpSockets(), {})),
              ElementsAre("ok port-free"));
}

TEST(MembershipCheckTest, EachInterfaceIsNamed) {
  const std::vector<LocalAddress> addresses{
      {.address = "10.0.0.1", .interface = "eth0", .isUp = true, .hasMulticast = true},
      {.address = "10.0.0.2", .interface = "eth0", .isUp = true, .hasMulticast = true},
      {.address = "10.1.0.1", .interface = "eth1", .isUp = true, .hasMulticast = true},
      {.address = "10.2.0.1", .interface = "eth2", .isUp = false, .hasMulticast = true},
      {.address = "10.3.0.1", .interface = "tun0", .isUp = true, .hasMulticast = false}};
  const auto joined = membershipsIn(IGMP);
  const auto found = checkMemberships({"239.255.77.1"}, true, addresses, joined);
  EXPECT_THAT(codesOf(found),
              ElementsAre("ok group-joined", "wrong group-not-joined", "note interface-down",
                          "note interface-without-multicast"));
  EXPECT_EQ(found[0].sentence, "interface eth0 (10.0.0.1, 10.0.0.2) has joined group 239.255.77.1");
  EXPECT_THAT(codesOf(checkMemberships({"239.1.1.1"}, false, {addresses[0]}, joined)),
              ElementsAre("note group-not-joined-yet"));
  EXPECT_THAT(checkMemberships({}, true, addresses, joined), IsEmpty());
  EXPECT_THAT(codesOf(checkMemberships({"239.1.1.1"}, true, {}, joined)),
              ElementsAre("wrong no-interface"));
  EXPECT_THAT(codesOf(checkMemberships({"239.1.1.1"}, true, {addresses[0]}, std::nullopt)),
              ElementsAre("note groups-unknown"));
}

}  // namespace
}  // namespace ravelin::check
