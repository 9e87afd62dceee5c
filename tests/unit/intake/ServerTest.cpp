#include "intake/Server.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "intake/LoudSenders.h"
#include "platform/SenderFilter.h"
#include "support/Announcements.h"
#include "support/Pipe.h"
#include "support/RecordingLog.h"
#include "support/Udp.h"
#include "support/Waiting.h"
#include "support/linux/OwnNetwork.h"
#include "support/linux/Seccomp.h"

namespace ravelin {
namespace {

using test::bytesOf;
using test::error;
using test::info;
using test::inOwnNetwork;
using test::internetAddress;
using test::LogLine;
using test::rawBytes;
using test::RecordingLog;
using test::ReservedPort;
using test::runUntil;
using test::UdpSocket;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

const LogLine STARTED = info("Server has been started!");
const LogLine STOPPED = info("Server has been stopped!");
const LogLine UNREADABLE = error("Server could not read data");

constexpr const char* GROUP = "239.77.0.1";
constexpr const char* OTHER_GROUP = "239.77.0.2";
constexpr const char* LOOPBACK = "127.0.0.1";

class OpenServer final : public Server {
 public:
  using Server::SocketReadCallback;
};

/// Keeps what it is given, and then does what the test wants.
class Collector final : public ServerDelegate {
 public:
  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override {
    servers.push_back(&server);
    datagrams.emplace_back(reinterpret_cast<const char*>(receivedData.data()), receivedData.size());
    addresses.emplace_back(fromAddress.begin(), fromAddress.end());
    if (then) {
      then();
    }
  }

  std::vector<const Server*> servers;
  std::vector<std::string> datagrams;
  std::vector<std::vector<std::byte>> addresses;
  std::function<void()> then;
};

class ServerTest : public testing::Test {
 protected:
  /// Runs the loop until the collector has that many datagrams.
  static void expectDatagrams(const Collector& from, std::size_t count) {
    EXPECT_TRUE(runUntil([&] { return from.datagrams.size() >= count; }));
    EXPECT_THAT(from.datagrams, SizeIs(count));
  }

  /// Another socket has the port all to itself.
  static bool isPortFree(std::int32_t port) {
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in address = internetAddress(LOOPBACK, port);
    const bool isFree =
        ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(descriptor);
    return isFree;
  }

  /// Ends a membership behind the server's back.
  static bool dropUnnoticed(const Server& server, const char* group, const char* address) {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = ::inet_addr(group);
    request.imr_interface.s_addr = ::inet_addr(address);
    return ::setsockopt(server.cfSocket()->native(), IPPROTO_IP, IP_DROP_MEMBERSHIP, &request,
                        sizeof request) == 0;
  }

  static bool sendToGroup(const UdpSocket& from, const std::string& text, const char* group,
                          std::int32_t port) {
    const in_addr outgoing{.s_addr = ::inet_addr(LOOPBACK)};
    return ::setsockopt(from.descriptor(), IPPROTO_IP, IP_MULTICAST_IF, &outgoing,
                        sizeof outgoing) == 0 &&
           from.send(text, port, group);
  }

  RecordingLog log;
  const ReservedPort reserved;
  const std::int32_t port = reserved.number();
  const UdpSocket sender;
  const std::shared_ptr<Collector> collector = std::make_shared<Collector>();
};

using ServerDeathTest = ServerTest;

// Starting and stopping.

TEST_F(ServerTest, ANewServerHasNothing) {
  const Server server;
  EXPECT_EQ(server.port(), 0U);
  EXPECT_EQ(server.cfSocket(), nullptr);
  EXPECT_EQ(server.multicastGroup(), std::nullopt);
  EXPECT_EQ(server.multicastSourceAddresses(), std::nullopt);
  EXPECT_EQ(server.delegate(), nullptr);
}

TEST_F(ServerTest, AStartedServerListensAndSaysSo) {
  Server server;
  server.startOnPort(port);
  EXPECT_EQ(server.port(), static_cast<unsigned long>(port));
  ASSERT_NE(server.cfSocket(), nullptr);
  EXPECT_GE(server.cfSocket()->native(), 0);
  EXPECT_EQ(server.multicastGroup(), std::nullopt);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(IsEmpty()));
  EXPECT_THAT(log.lines(), ElementsAre(STARTED));
}

TEST_F(ServerTest, StoppingAServerThatNeverStartedOnlyLogs) {
  Server server;
  server.stop();
  EXPECT_THAT(log.lines(), ElementsAre(STOPPED));
  EXPECT_EQ(server.port(), 0U);
  EXPECT_EQ(server.cfSocket(), nullptr);
  EXPECT_EQ(server.multicastSourceAddresses(), std::nullopt);
  server.stop();
  EXPECT_THAT(log.lines(), ElementsAre(STOPPED, STOPPED));
}

TEST_F(ServerTest, AStoppedServerKeepsOnlyGroupAddressesAndDelegate) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  log.take();
  server.stop();
  EXPECT_THAT(log.lines(), ElementsAre(STOPPED));
  EXPECT_EQ(server.port(), 0U);
  EXPECT_EQ(server.cfSocket(), nullptr);
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
  EXPECT_EQ(server.delegate(), collector);
  EXPECT_TRUE(isPortFree(port));
}

TEST_F(ServerTest, AStoppedServerDeliversNothingThatStillWaited) {
  Server server;
  Server other;
  server.setDelegate(collector);
  server.startOnAddress(LOOPBACK, port);
  ASSERT_TRUE(sender.send("unheard", port));
  server.stop();
  const auto later = std::make_shared<Collector>();
  other.setDelegate(later);
  other.startOnAddress(LOOPBACK, port);
  ASSERT_TRUE(sender.send("heard", port));
  expectDatagrams(*later, 1);
  EXPECT_THAT(collector->datagrams, IsEmpty());
}

TEST_F(ServerTest, WhatWasLostBeforeAStopIsNoReasonToLeaveAnybodyOutAfterIt) {
  Server server;
  server.setDelegate(collector);
  server.startOnAddress(LOOPBACK, port);
  const auto buffer = [&] {
    return platform::receiveBufferOf(server.cfSocket()->native())
        .value_or(platform::ReceiveBuffer());
  };
  constexpr std::size_t MANY = 4000;
  for (std::size_t number = 0; number < MANY; ++number) {
    sender.send("flood", port);
  }
  ASSERT_GT(buffer().dropped, LoudSenders::LOOK_INTERVAL);
  ASSERT_TRUE(runUntil([&] { return collector->datagrams.size() >= LoudSenders::LOOK_INTERVAL; }));
  server.stop();
  server.startOnAddress(LOOPBACK, port);
  collector->datagrams.clear();

  // Without a loss, and after a look the buffer is still more than half full.
  const UdpSocket device("127.0.0.3");
  std::size_t sent = 0;
  for (; sent < MANY && !buffer().isMoreThanHalfFull; ++sent) {
    device.send("burst", port);
  }
  for (std::uint32_t more = 0; more < 2 * LoudSenders::LOOK_INTERVAL; ++more, ++sent) {
    device.send("burst", port);
  }
  ASSERT_EQ(buffer().dropped, 0U);
  expectDatagrams(*collector, sent);
  ASSERT_TRUE(device.send("heard", port));
  expectDatagrams(*collector, sent + 1);
}

TEST_F(ServerTest, NoChildProcessGetsTheSocket) {
  Server server;
  server.startOnPort(port);
  EXPECT_EQ(::fcntl(server.cfSocket()->native(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ServerTest, AServerThatIsStartedAgainHasJoinedNothing) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  server.stop();
  server.startOnPort(port);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(IsEmpty()));
  EXPECT_FALSE(server.hasJoinedMulticastGroup(GROUP, LOOPBACK));
  ASSERT_TRUE(sender.send("heard", port));
  expectDatagrams(*collector, 1);
}

TEST_F(ServerTest, TheEndOfAServerIsAStop) {
  {
    Server server;
    server.startOnPort(port);
    log.take();
  }
  EXPECT_THAT(log.take(), ElementsAre(STOPPED));
  EXPECT_TRUE(isPortFree(port));
  {
    const Server server;
  }
  EXPECT_THAT(log.take(), ElementsAre(STOPPED));
}

TEST_F(ServerTest, ATextThatIsNoAddressFailsWithTwoLines) {
  for (const char* address : {"not an address", "", "192.0.2.300", "255.255.255.255", "::1"}) {
    Server server;
    log.take();
    server.startOnAddress(address, port);
    EXPECT_THAT(log.take(),
                ElementsAre(error("Server socket cannot be created. Reason: Cannot assign "
                                  "requested address"),
                            STOPPED))
        << address;
    EXPECT_EQ(server.port(), 0U);
    EXPECT_EQ(server.cfSocket(), nullptr);
    EXPECT_EQ(server.multicastSourceAddresses(), std::nullopt);
    server.startOnPort(port);
    EXPECT_EQ(server.port(), static_cast<unsigned long>(port));
  }
}

TEST_F(ServerTest, AnAddressOfAnotherMachineFailsLikewise) {
  Server server;
  server.startOnAddress("203.0.113.99", port);
  EXPECT_THAT(log.lines(), ElementsAre(error("Server socket cannot be created. Reason: Cannot "
                                             "assign requested address"),
                                       STOPPED));
}

TEST_F(ServerTest, APortThatASocketHasToItselfFailsLikewise) {
  const UdpSocket owner;
  Server server;
  server.startOnAddress(LOOPBACK, owner.port());
  EXPECT_THAT(log.lines(), ElementsAre(error("Server socket cannot be created. Reason: Address "
                                             "already in use"),
                                       STOPPED));
  EXPECT_EQ(server.port(), 0U);
}

TEST_F(ServerDeathTest, AStartForWhichTheSystemHasNoSocketFailsLikewise) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        EXPECT_TRUE(test::refuse({__NR_socket, {{0, AF_INET}}}, EMFILE));
        Server server;
        server.startOnPort(port);
        EXPECT_THAT(log.take(), ElementsAre(error("Server socket cannot be created. Reason: Too "
                                                  "many open files"),
                                            STOPPED));
        EXPECT_EQ(server.port(), 0U);
        EXPECT_EQ(server.cfSocket(), nullptr);
        EXPECT_EQ(server.multicastSourceAddresses(), std::nullopt);
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServerDeathTest, ARefusalToShareThePortIsToldAsMinusOneWhateverItsReason) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        EXPECT_TRUE(test::refuse({__NR_setsockopt, {{1, SOL_SOCKET}, {2, SO_REUSEPORT}}}, ENOMEM));
        Server server;
        server.startOnPort(port);
        EXPECT_THAT(log.take(), ElementsAre(error("Server socket cannot be created. Reason: "
                                                  "Unknown error -1"),
                                            STOPPED));
        EXPECT_EQ(server.port(), 0U);
        EXPECT_EQ(server.cfSocket(), nullptr);
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServerTest, AFailedStartLeavesNoDescriptorOpen) {
  const int before = ::dup(0);
  ::close(before);
  Server server;
  for (int attempt = 0; attempt < 10; ++attempt) {
    server.startOnAddress("nonsense", port);
  }
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(before, after);
}

TEST_F(ServerTest, NothingWaitsForTheSocket) {
  Server server;
  server.startOnPort(port);
  EXPECT_NE(::fcntl(server.cfSocket()->native(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(ServerTest, AServerOnOneAddressHearsNothingSentToAnother) {
  Server server;
  server.setDelegate(collector);
  server.startOnAddress("127.0.0.2", port);
  sender.send("elsewhere", port, "127.0.0.3");
  ASSERT_TRUE(sender.send("here", port, "127.0.0.2"));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->datagrams, ElementsAre("here"));
}

TEST_F(ServerTest, TwoServersShareOnePort) {
  Server one;
  Server two;
  const auto other = std::make_shared<Collector>();
  one.setDelegate(collector);
  two.setDelegate(other);
  one.startOnPort(port);
  two.startOnPort(port);
  EXPECT_THAT(log.lines(), ElementsAre(STARTED, STARTED));
  constexpr std::size_t SENDERS = 40;
  for (std::size_t number = 0; number < SENDERS; ++number) {
    ASSERT_TRUE(UdpSocket().send(std::to_string(number), port));
  }
  EXPECT_TRUE(
      runUntil([&] { return collector->datagrams.size() + other->datagrams.size() >= SENDERS; }));
  // Each went to one of them.
  EXPECT_EQ(collector->datagrams.size() + other->datagrams.size(), SENDERS);
}

TEST_F(ServerTest, AServerIsServedByTheThreadThatStartsIt) {
  std::thread::id servedBy;
  std::thread::id startedBy;
  std::jthread thread([&] {
    startedBy = std::this_thread::get_id();
    Server server;
    collector->then = [&] { servedBy = std::this_thread::get_id(); };
    server.setDelegate(collector);
    server.startOnPort(port);
    EXPECT_TRUE(sender.send("heard", port));
    for (int pass = 0; pass < 100 && collector->datagrams.empty(); ++pass) {
      platform::RunLoop::current().runOnce(platform::RunLoop::Seconds(0.1));
    }
  });
  thread.join();
  EXPECT_EQ(collector->datagrams.size(), 1U);
  EXPECT_EQ(servedBy, startedBy);
}

TEST_F(ServerDeathTest, PortsOutsideTheRangeEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto message =
      AllOf(HasSubstr("Server::startOnAddress"), HasSubstr("1 <= andPort && andPort <= 65535"));
  Server server;
  EXPECT_DEATH(server.startOnPort(0), message);
  EXPECT_DEATH(server.startOnPort(-1), message);
  EXPECT_DEATH(server.startOnPort(65536), message);
  EXPECT_DEATH(server.startOnAddress(LOOPBACK, std::numeric_limits<std::int32_t>::min()), message);
}

TEST_F(ServerTest, TheFirstAndTheLastPortAreInRange) {
  Server server;
  server.startOnPort(65535);
  server.stop();
  server.startOnPort(1);
  server.stop();
}

TEST_F(ServerDeathTest, StartingAStartedServerEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Server server;
  server.startOnPort(port);
  EXPECT_DEATH(server.startOnPort(port),
               AllOf(HasSubstr("Server::startOnAddress"), HasSubstr("port == 0")));
}

TEST_F(ServerDeathTest, AServerThatHasASocketCannotMakeAnother) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Server started;
  started.startOnPort(port);
  Server server;
  server.setCfSocket(started.cfSocket());
  EXPECT_DEATH(server.startOnPort(port), AllOf(HasSubstr("Server::_setupSocketListeningOnAddress"),
                                               HasSubstr("cfSocket == null")));
  server.setCfSocket(nullptr);
}

// Receiving.

TEST_F(ServerTest, ADatagramReachesTheDelegateWithItsSender) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  ASSERT_TRUE(sender.send("event:no_disk;mac:m", port));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->servers, ElementsAre(&server));
  EXPECT_THAT(collector->datagrams, ElementsAre("event:no_disk;mac:m"));
  ASSERT_EQ(collector->addresses[0].size(), 16U);
  sockaddr_in from{};
  std::memcpy(&from, collector->addresses[0].data(), sizeof from);
  EXPECT_EQ(from.sin_family, AF_INET);
  EXPECT_EQ(ntohs(from.sin_port), sender.port());
  EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(Server::displayAddressForAddress(collector->addresses[0]),
            "127.0.0.1:" + std::to_string(sender.port()));
}

TEST_F(ServerTest, DatagramsOfOneByteAndOfTheGreatestSizeArriveWhole) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  std::string greatest(65507, 'x');
  greatest.back() = '!';
  ASSERT_TRUE(sender.send(std::string(1, '\0'), port));
  ASSERT_TRUE(sender.send(greatest, port));
  expectDatagrams(*collector, 2);
  EXPECT_EQ(collector->datagrams[0], std::string(1, '\0'));
  EXPECT_TRUE(collector->datagrams[1] == greatest);
}

TEST_F(ServerTest, AnEmptyDatagramIsAFailedRead) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  log.take();
  ASSERT_TRUE(sender.send("", port));
  ASSERT_TRUE(sender.send("next", port));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->datagrams, ElementsAre("next"));
  EXPECT_THAT(log.lines(), ElementsAre(UNREADABLE));
}

TEST_F(ServerTest, AFirstReadThatFindsNothingIsAFailedRead) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  log.take();
  // Termination and the datagram wake the loop together, and termination is served first.
  ASSERT_TRUE(sender.send("taken away", port));
  std::array<char, 64> taken{};
  ssize_t size = 0;
  const test::Pipe pipe;
  pipe.write();
  const auto urgent = platform::RunLoop::main().watchReadable(
      pipe.reader(), platform::RunLoop::Urgency::termination, [&] {
        pipe.read();
        size = ::recv(server.cfSocket()->native(), taken.data(), taken.size(), 0);
      });
  EXPECT_TRUE(runUntil([&] { return !log.lines().empty(); }));
  EXPECT_EQ(size, 10);
  ASSERT_TRUE(sender.send("next", port));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->datagrams, ElementsAre("next"));
  EXPECT_THAT(log.lines(), ElementsAre(UNREADABLE));
}

TEST_F(ServerDeathTest, ACallbackThatIsNotTheServersOwnEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  OpenServer server;
  OpenServer other;
  server.startOnPort(port);
  other.startOnPort(port);
  platform::RunLoopSocket& socket = *server.cfSocket();
  EXPECT_DEATH(
      OpenServer::SocketReadCallback(socket, other),
      AllOf(HasSubstr("Server::SocketReadCallback"), HasSubstr("socket == server.cfSocket\n")));
  EXPECT_DEATH(
      {
        socket.invalidate();
        OpenServer::SocketReadCallback(socket, server);
      },
      AllOf(HasSubstr("Server::_readData"), HasSubstr("native(cfSocket) >= 0\n")));
  // With the right arguments it reads, and finds nothing here.
  log.take();
  EXPECT_FALSE(OpenServer::SocketReadCallback(socket, server));
  EXPECT_THAT(log.lines(), ElementsAre(UNREADABLE));
}

TEST_F(ServerTest, EveryEmptyDatagramHasItsLine) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  log.take();
  for (int number = 0; number < 50; ++number) {
    ASSERT_TRUE(sender.send("", port));
  }
  ASSERT_TRUE(sender.send("next", port));
  expectDatagrams(*collector, 1);
  EXPECT_EQ(log.lines().size(), 50U);
  EXPECT_THAT(log.lines(), Each(UNREADABLE));
}

TEST_F(ServerTest, ABurstArrivesInOrderWithoutAFailedRead) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  log.take();
  std::vector<std::string> sent;
  for (int number = 0; number < 100; ++number) {
    sent.push_back(std::to_string(number));
    ASSERT_TRUE(sender.send(sent.back(), port));
  }
  expectDatagrams(*collector, sent.size());
  EXPECT_EQ(collector->datagrams, sent);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServerTest, WithoutADelegateDatagramsAreDroppedWithoutAWord) {
  Server server;
  server.startOnPort(port);
  log.take();
  ASSERT_TRUE(sender.send("unheard", port));
  // An empty datagram behind it shows that the first one has been read.
  ASSERT_TRUE(sender.send("", port));
  ASSERT_TRUE(runUntil([&] { return !log.lines().empty(); }));
  EXPECT_THAT(log.lines(), ElementsAre(UNREADABLE));
  server.setDelegate(collector);
  ASSERT_TRUE(sender.send("heard", port));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->datagrams, ElementsAre("heard"));
}

// The delegate's life.

TEST_F(ServerTest, AServerKeepsItsDelegateAliveAndLetsGoOfItInTheEnd) {
  auto server = std::make_unique<Server>();
  auto delegate = std::make_shared<Collector>();
  const std::weak_ptr<Collector> watched = delegate;
  server->setDelegate(std::move(delegate));
  EXPECT_FALSE(watched.expired());
  server->stop();
  EXPECT_FALSE(watched.expired());
  server.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(ServerTest, AReplacedDelegateIsLetGoOf) {
  Server server;
  auto delegate = std::make_shared<Collector>();
  const std::weak_ptr<Collector> watched = delegate;
  server.setDelegate(std::move(delegate));
  server.setDelegate(nullptr);
  EXPECT_TRUE(watched.expired());
}

TEST_F(ServerTest, ADelegateMayStopItsServer) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  log.take();
  collector->then = [&] { server.stop(); };
  for (int number = 0; number < 5; ++number) {
    ASSERT_TRUE(sender.send(std::to_string(number), port));
  }
  expectDatagrams(*collector, 1);
  EXPECT_EQ(server.port(), 0U);
  EXPECT_TRUE(isPortFree(port));
  EXPECT_THAT(log.lines(), ElementsAre(STOPPED));
}

TEST_F(ServerTest, ADelegateMayStartItsServerAgain) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  collector->then = [&] {
    collector->then = nullptr;
    server.stop();
    server.startOnPort(port);
  };
  ASSERT_TRUE(sender.send("first", port));
  expectDatagrams(*collector, 1);
  ASSERT_TRUE(sender.send("second", port));
  expectDatagrams(*collector, 2);
  EXPECT_THAT(collector->datagrams, ElementsAre("first", "second"));
  EXPECT_EQ(log.count(UNREADABLE), 0U);
}

TEST_F(ServerTest, ADelegateMayDestroyItsServer) {
  auto server = std::make_unique<Server>();
  auto delegate = std::make_shared<Collector>();
  Collector& received = *delegate;
  const std::weak_ptr<Collector> watched = delegate;
  std::size_t seen = 0;
  received.then = [&] {
    server.reset();
    // The delegate itself lasts until its call is over.
    EXPECT_FALSE(watched.expired());
    seen = received.datagrams.size();
  };
  server->setDelegate(std::move(delegate));
  server->startOnPort(port);
  log.take();
  for (int number = 0; number < 5; ++number) {
    ASSERT_TRUE(sender.send(std::to_string(number), port));
  }
  EXPECT_TRUE(runUntil([&] { return watched.expired(); }));
  EXPECT_EQ(seen, 1U);
  EXPECT_TRUE(isPortFree(port));
  EXPECT_THAT(log.lines(), ElementsAre(STOPPED));
}

TEST_F(ServerTest, ADelegateMayPutAnotherInItsPlace) {
  Server server;
  auto delegate = std::make_shared<Collector>();
  const std::weak_ptr<Collector> watched = delegate;
  delegate->then = [&] {
    server.setDelegate(collector);
    EXPECT_FALSE(watched.expired());
  };
  server.setDelegate(std::move(delegate));
  server.startOnPort(port);
  ASSERT_TRUE(sender.send("first", port));
  ASSERT_TRUE(sender.send("second", port));
  expectDatagrams(*collector, 1);
  EXPECT_THAT(collector->datagrams, ElementsAre("second"));
  EXPECT_TRUE(watched.expired());
}

// Sending.

TEST_F(ServerTest, ADatagramIsSentToTheAddress) {
  Server server;
  server.startOnPort(port);
  log.take();
  const sockaddr_in address = internetAddress(LOOPBACK, sender.port());
  server._sendData(bytesOf("hello"), rawBytes(address));
  EXPECT_EQ(sender.receive(), "hello");
  EXPECT_THAT(log.lines(), ElementsAre(info("Server has sent data")));
}

TEST_F(ServerTest, TheAddressMayHaveAllTheRoomThatTheSystemHasForOne) {
  Server server;
  server.startOnPort(port);
  const sockaddr_in address = internetAddress(LOOPBACK, sender.port());
  sockaddr_storage room{};
  std::memcpy(&room, &address, sizeof address);
  server._sendData(bytesOf("hello"), rawBytes(room));
  EXPECT_EQ(sender.receive(), "hello");
}

TEST_F(ServerTest, WhatTheSystemDoesNotSendIsLogged) {
  Server server;
  server.startOnPort(port);
  log.take();
  const LogLine refused = error("Server cannot send data!");
  // Nobody to send it to.
  server._sendData(bytesOf("hello"), std::nullopt);
  EXPECT_THAT(log.take(), ElementsAre(refused));
  // An empty datagram counts as not sent, although it arrives.
  const sockaddr_in address = internetAddress(LOOPBACK, sender.port());
  server._sendData(bytesOf(""), rawBytes(address));
  EXPECT_EQ(sender.receive(), "");
  EXPECT_THAT(log.take(), ElementsAre(refused));
  server._sendData(bytesOf(std::string(65508, 'x')), rawBytes(address));
  EXPECT_THAT(log.take(), ElementsAre(refused));
  server._sendData(bytesOf("hello"), rawBytes(address).first(3));
  EXPECT_THAT(log.take(), ElementsAre(refused));
}

TEST_F(ServerDeathTest, AFailureToSendThatHasNoReasonIsToldAsSent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Server server;
        server.startOnPort(port);
        log.take();
        const sockaddr_in address = internetAddress(LOOPBACK, sender.port());
        EXPECT_TRUE(test::haveReturn({__NR_sendto, {}}, -5000));
        server._sendData(bytesOf("hello"), rawBytes(address));
        EXPECT_THAT(log.take(), ElementsAre(info("Server has sent data")));
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServerDeathTest, SendingWithoutDataSocketOrWithTooLongAnAddressEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Server server;
  EXPECT_DEATH(server._sendData(bytesOf("x"), std::nullopt),
               AllOf(HasSubstr("Server::_sendData"), HasSubstr("native(cfSocket) >= 0")));
  server.startOnPort(port);
  EXPECT_DEATH(server._sendData(std::nullopt, std::nullopt),
               AllOf(HasSubstr("Server::_sendData"), HasSubstr("data != null")));
  const std::vector<std::byte> address(129);
  EXPECT_DEATH(server._sendData(bytesOf("x"), address),
               AllOf(HasSubstr("Server::_sendData"), HasSubstr("size(toAddress) <= 128")));
}

// Showing addresses.

sockaddr_in6 wideAddress(const char* host, std::uint16_t port) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  EXPECT_EQ(::inet_pton(AF_INET6, host, &address.sin6_addr), 1);
  return address;
}

Text shownWide(const char* host) {
  return Server::displayAddressForAddress(rawBytes(wideAddress(host, 5000)));
}

TEST(ServerAddressTest, AnIPv4AddressIsShownWithItsPort) {
  EXPECT_EQ(Server::displayAddressForAddress(rawBytes(internetAddress("192.0.2.10", 5000))),
            "192.0.2.10:5000");
  EXPECT_EQ(Server::displayAddressForAddress(rawBytes(internetAddress("0.0.0.0", 0))), "0.0.0.0:0");
  EXPECT_EQ(Server::displayAddressForAddress(rawBytes(internetAddress("127.0.0.1", 65535))),
            "127.0.0.1:65535");
}

TEST(ServerAddressTest, WrappedIPv4AddressesAreUnwrapped) {
  EXPECT_EQ(shownWide("::ffff:192.0.2.10"), "192.0.2.10:5000");
  EXPECT_EQ(shownWide("::192.0.2.10"), "192.0.2.10:5000");
  EXPECT_EQ(shownWide("::ffff:0.0.0.0"), "0.0.0.0:5000");
  EXPECT_EQ(shownWide("::ffff:0.0.0.1"), "0.0.0.1:5000");
  EXPECT_EQ(shownWide("::0.0.0.2"), "0.0.0.2:5000");
}

TEST(ServerAddressTest, OtherIPv6AddressesStayWhatTheyAre) {
  EXPECT_EQ(shownWide("::1"), "::1:5000");
  EXPECT_EQ(shownWide("::"), ":::5000");
  EXPECT_EQ(shownWide("2001:db8::1"), "2001:db8::1:5000");
  EXPECT_EQ(shownWide("64:ff9b::192.0.2.10"), "64:ff9b::c000:20a:5000");
}

TEST(ServerAddressTest, BytesBehindAWrappedAddressChangeNothing) {
  sockaddr_storage storage{};
  const sockaddr_in6 wide = wideAddress("::ffff:192.0.2.10", 5000);
  std::memcpy(&storage, &wide, sizeof wide);
  EXPECT_EQ(Server::displayAddressForAddress(rawBytes(storage)), "192.0.2.10:5000");
}

TEST(ServerAddressTest, NoAddressIsNotShown) {
  EXPECT_EQ(Server::displayAddressForAddress(std::nullopt), std::nullopt);
}

TEST(ServerAddressTest, AnUnreadableAddressIsNotShown) {
  const sockaddr_in narrow = internetAddress("192.0.2.10", 5000);
  const sockaddr_in6 wide = wideAddress("::ffff:192.0.2.10", 5000);
  for (std::size_t size = 0; size < sizeof narrow; ++size) {
    EXPECT_EQ(Server::displayAddressForAddress(rawBytes(narrow).first(size)), std::nullopt) << size;
  }
  EXPECT_EQ(Server::displayAddressForAddress(rawBytes(wide).first(20)), std::nullopt);
  const std::vector<std::byte> noFamily(16);
  EXPECT_EQ(Server::displayAddressForAddress(noFamily), std::nullopt);
}

TEST(ServerAddressTest, AnAddressNeedNotBeAligned) {
  const sockaddr_in6 wide = wideAddress("::ffff:192.0.2.10", 5000);
  std::vector<std::byte> shifted(1 + sizeof wide);
  std::memcpy(shifted.data() + 1, &wide, sizeof wide);
  EXPECT_EQ(Server::displayAddressForAddress(std::span<const std::byte>(shifted).subspan(1)),
            "192.0.2.10:5000");
}

// Memberships, on the loopback interface.

TEST_F(ServerTest, AJoinedGroupAndItsAddressAreKnown) {
  Server server;
  server.startOnPort(port);
  log.take();
  EXPECT_FALSE(server.hasJoinedMulticastGroup(GROUP, LOOPBACK));
  server.joinMulticastGroup(GROUP, LOOPBACK);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
  EXPECT_TRUE(server.hasJoinedMulticastGroup(GROUP, LOOPBACK));
  EXPECT_FALSE(server.hasJoinedMulticastGroup(OTHER_GROUP, LOOPBACK));
  EXPECT_FALSE(server.hasJoinedMulticastGroup(GROUP, "127.0.0.2"));
}

TEST_F(ServerTest, OnlyJoinedGroupsAreHeard) {
  Server server;
  Server other;
  const auto heardByOther = std::make_shared<Collector>();
  server.setDelegate(collector);
  other.setDelegate(heardByOther);
  server.startOnPort(port);
  other.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  other.joinMulticastGroup(OTHER_GROUP, LOOPBACK);
  ASSERT_TRUE(sendToGroup(sender, "first", GROUP, port));
  ASSERT_TRUE(sendToGroup(sender, "second", OTHER_GROUP, port));
  ASSERT_TRUE(
      runUntil([&] { return !collector->datagrams.empty() && !heardByOther->datagrams.empty(); }));
  ASSERT_TRUE(sendToGroup(sender, "third", GROUP, port));
  expectDatagrams(*collector, 2);
  EXPECT_THAT(collector->datagrams, ElementsAre("first", "third"));
  EXPECT_THAT(heardByOther->datagrams, ElementsAre("second"));
}

TEST_F(ServerTest, ADroppedGroupIsNotHeardAnyMore) {
  Server server;
  server.setDelegate(collector);
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  ASSERT_TRUE(sendToGroup(sender, "heard", GROUP, port));
  expectDatagrams(*collector, 1);
  server.dropMulticastGroup(GROUP, LOOPBACK);
  sendToGroup(sender, "unheard", GROUP, port);
  ASSERT_TRUE(sender.send("to the port", port));
  expectDatagrams(*collector, 2);
  EXPECT_THAT(collector->datagrams, ElementsAre("heard", "to the port"));
}

TEST_F(ServerTest, AJoinWithAnotherGroupTakesTheFirstOnesPlace) {
  Server server;
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  server.joinMulticastGroup(OTHER_GROUP, LOOPBACK);
  EXPECT_EQ(server.multicastGroup(), OTHER_GROUP);
  // The same text stands there twice.
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK, LOOPBACK)));
  server.dropMulticastGroup(GROUP, LOOPBACK);
  EXPECT_EQ(server.multicastGroup(), OTHER_GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
}

TEST_F(ServerTest, ADropOfTheLastAddressLeavesTheGroup) {
  Server server;
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  log.take();
  server.dropMulticastGroup(GROUP, LOOPBACK);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(IsEmpty()));
  EXPECT_FALSE(server.hasJoinedMulticastGroup(GROUP, LOOPBACK));
}

TEST_F(ServerTest, ARefusedJoinIsLoggedAndChangesNothing) {
  Server server;
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  log.take();
  const auto refused = [&](const std::string& group) {
    return error("Server cannot join multicast group " + group + " at port " +
                 std::to_string(port));
  };
  for (const std::string group : {"not a group", "", "192.0.2.1", "239.0.0.256"}) {
    server.joinMulticastGroup(group, LOOPBACK);
    EXPECT_THAT(log.take(), ElementsAre(refused(group)));
  }
  for (const char* address : {"nowhere", "", "203.0.113.99"}) {
    server.joinMulticastGroup(OTHER_GROUP, address);
    EXPECT_THAT(log.take(), ElementsAre(refused(OTHER_GROUP)));
  }
  server.joinMulticastGroup(GROUP, LOOPBACK);
  EXPECT_THAT(log.take(), ElementsAre(refused(GROUP)));
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
}

TEST_F(ServerTest, ARefusedDropIsLoggedAndKeepsTheAddress) {
  Server server;
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  ASSERT_TRUE(dropUnnoticed(server, GROUP, LOOPBACK));
  log.take();
  server.dropMulticastGroup(GROUP, LOOPBACK);
  EXPECT_THAT(log.take(), ElementsAre(error("Server cannot drop multicast group 239.77.0.1 (source "
                                            "addr 127.0.0.1) at port " +
                                            std::to_string(port))));
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(LOOPBACK)));
  server.dropMulticastGroup("not a group", "nowhere");
  EXPECT_THAT(log.take(),
              ElementsAre(error("Server cannot drop multicast group not a group (source "
                                "addr nowhere) at port " +
                                std::to_string(port))));
  server.dropMulticastGroup(OTHER_GROUP, std::nullopt);
  EXPECT_THAT(log.take(), ElementsAre(error("Server cannot drop multicast group 239.77.0.2 (source "
                                            "addr (null)) at port " +
                                            std::to_string(port))));
  EXPECT_EQ(server.multicastGroup(), GROUP);
}

TEST_F(ServerTest, WithoutASocketJoinsAndDropsAreOnlyLogged) {
  Server server;
  server.joinMulticastGroup(GROUP, LOOPBACK);
  server.dropMulticastGroup(GROUP, LOOPBACK);
  server.joinMulticastGroup(GROUP);
  const LogLine noJoin = error("Server cannot join multicast group 239.77.0.1 at port 0");
  EXPECT_THAT(log.take(), ElementsAre(noJoin,
                                      error("Server cannot drop multicast group 239.77.0.1 (source "
                                            "addr 127.0.0.1) at port 0"),
                                      noJoin));
  EXPECT_EQ(server.multicastGroup(), std::nullopt);
  EXPECT_EQ(server.multicastSourceAddresses(), std::nullopt);
  EXPECT_FALSE(server.hasJoinedMulticastGroup(GROUP, LOOPBACK));
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, LOOPBACK);
  server.stop();
  log.take();
  server.joinMulticastGroup(OTHER_GROUP, LOOPBACK);
  EXPECT_THAT(log.take(),
              ElementsAre(error("Server cannot join multicast group 239.77.0.2 at port 0")));
  EXPECT_EQ(server.multicastGroup(), GROUP);
}

// Memberships, on two interfaces.

TEST_F(ServerTest, TheGroupIsJoinedOnSeveralInterfaces) {
  if (!inOwnNetwork()) {
    return;
  }
  const std::string a = test::FIRST_ADDRESS;
  const std::string b = test::SECOND_ADDRESS;
  Server server;
  server.startOnPort(port);
  log.take();
  server.joinMulticastGroup("239.0.0.1", a);
  server.joinMulticastGroup("239.0.0.1", b);
  EXPECT_EQ(server.multicastGroup(), "239.0.0.1");
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(a, b)));
  EXPECT_TRUE(server.hasJoinedMulticastGroup("239.0.0.1", a));
  EXPECT_TRUE(server.hasJoinedMulticastGroup("239.0.0.1", b));
  server.dropMulticastGroup("239.0.0.1", a);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(b)));
  server.joinMulticastGroup("239.0.0.1", a);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(b, a)));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServerTest, ADropTakesTheLastOfEqualAddresses) {
  if (!inOwnNetwork()) {
    return;
  }
  const std::string a = test::FIRST_ADDRESS;
  const std::string b = test::SECOND_ADDRESS;
  Server server;
  server.startOnPort(port);
  server.joinMulticastGroup(GROUP, a);
  server.joinMulticastGroup(GROUP, b);
  ASSERT_TRUE(dropUnnoticed(server, GROUP, a.c_str()));
  server.joinMulticastGroup(GROUP, a);
  ASSERT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(a, b, a)));
  server.dropMulticastGroup(GROUP, a);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(ElementsAre(a, b)));
}

TEST_F(ServerTest, AGroupJoinedWithoutAnAddressIsKnownButNoAddressIs) {
  if (!inOwnNetwork()) {
    return;
  }
  // The group's route decides on which interface it is joined.
  ASSERT_EQ(std::system("ip route add 239.77.0.0/16 dev first"), 0);
  Server server;
  server.startOnPort(port);
  log.take();
  server.joinMulticastGroup(GROUP);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(server.multicastGroup(), GROUP);
  EXPECT_THAT(server.multicastSourceAddresses(), Optional(IsEmpty()));
  EXPECT_TRUE(dropUnnoticed(server, GROUP, test::FIRST_ADDRESS));
}

}  // namespace
}  // namespace ravelin
