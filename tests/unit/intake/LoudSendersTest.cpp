#include "intake/LoudSenders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "intake/SenderAddress.h"
#include "platform/RunLoop.h"
#include "platform/SenderFilter.h"
#include "support/Udp.h"
#include "support/Waiting.h"

namespace ravelin {
namespace {

using test::runUntil;
using test::UdpSocket;

constexpr int MANY = 4000;
constexpr platform::RunLoop::Seconds SILENCE{1.5};

class LoudSendersTest : public testing::Test {
 protected:
  /// Far more than the receiver's buffer holds.
  void overfill(const UdpSocket& sender) const {
    for (int number = 0; number < MANY; ++number) {
      sender.send("flood", receiver->port());
    }
  }

  /// Fills the receiver's buffer, and sends on until so many datagrams have been lost.
  void overfillUntilLost(const UdpSocket& sender, std::uint32_t lost) const {
    const auto lostSoFar = [&] {
      return platform::receiveBufferOf(receiver->descriptor())
          .value_or(platform::ReceiveBuffer())
          .dropped;
    };
    const UdpSocket other;
    for (int number = 0; number < MANY && lostSoFar() < lost; ++number) {
      sender.send("flood", receiver->port());
      // What was sent before this one is there, or lost, when it is there.
      sender.send("after", other.port());
      ASSERT_EQ(other.receive(), "after");
    }
    ASSERT_EQ(lostSoFar(), lost);
  }

  /// From now on the stranger is not listened to.
  void silenceStranger() {
    overfill(stranger);
    ASSERT_TRUE(read(LoudSenders::LOOK_INTERVAL));
    overfill(stranger);
    ASSERT_TRUE(read(LoudSenders::LOOK_INTERVAL));
    EXPECT_FALSE(hears(stranger));
  }

  /// Does so with a silence of that length, and has the run loop do one thing then, which is to see
  /// whose silence is over: there is nothing else to do.
  void silenceStrangerAndLookOnce(platform::RunLoop::Seconds silence) {
    loudSenders = std::make_unique<LoudSenders>(silence);
    silenceStranger();
    test::settle();
    platform::RunLoop::main().runOnce(test::PATIENCE);
  }

  /// Reads that many datagrams as a server does; false when there are fewer.
  bool read(std::uint32_t count) {
    for (std::uint32_t number = 0; number < count; ++number) {
      char byte = 0;
      sockaddr_in sender{};
      socklen_t size = sizeof sender;
      if (::recvfrom(receiver->descriptor(), &byte, 1, MSG_DONTWAIT,
                     reinterpret_cast<sockaddr*>(&sender), &size) < 0) {
        return false;
      }
      loudSenders->heard(senderIn(test::rawBytes(sender)), receiver->descriptor());
    }
    return true;
  }
  /// Returns how many there were.
  std::uint32_t readAll() {
    std::uint32_t count = 0;
    while (read(1)) {
      ++count;
    }
    return count;
  }

  /// Has the device send what takes three quarters of the buffer, which holds so many datagrams,
  /// and reads some of it.
  void sendWithoutLoss(std::uint32_t held) {
    for (std::uint32_t number = 0; number < held * 3 / 4; ++number) {
      device.send("flood", receiver->port());
    }
    ASSERT_TRUE(read(3 * LoudSenders::LOOK_INTERVAL));
  }

  [[nodiscard]] bool hears(const UdpSocket& sender) {
    readAll();
    sender.send("x", receiver->port());
    return read(1);
  }

  std::unique_ptr<UdpSocket> receiver = std::make_unique<UdpSocket>();
  const UdpSocket stranger{"127.0.0.2"};
  const UdpSocket device{"127.0.0.3"};
  std::unique_ptr<LoudSenders> loudSenders = std::make_unique<LoudSenders>(SILENCE);
};

TEST_F(LoudSendersTest, WhoFillsTheBufferIsNotListenedToForAWhile) {
  const auto begin = std::chrono::steady_clock::now();
  silenceStranger();
  EXPECT_TRUE(hears(device));
  EXPECT_TRUE(runUntil([&] { return hears(stranger); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, SILENCE);
  EXPECT_TRUE(hears(device));
}

TEST_F(LoudSendersTest, NobodyIsListenedToBeforeTheSilenceIsOver) {
  silenceStrangerAndLookOnce(std::chrono::hours(1));
  EXPECT_FALSE(hears(stranger));
  EXPECT_TRUE(hears(device));
}

TEST_F(LoudSendersTest, WhoseSilenceIsSeenToBeOverIsListenedToAtOnce) {
  silenceStrangerAndLookOnce(platform::RunLoop::Seconds(0.1));
  EXPECT_TRUE(hears(stranger));
}

TEST_F(LoudSendersTest, AsManyLostAsAreReadBetweenTwoLooksAreEnough) {
  overfillUntilLost(stranger, LoudSenders::LOOK_INTERVAL);
  ASSERT_TRUE(read(LoudSenders::LOOK_INTERVAL));
  EXPECT_FALSE(hears(stranger));
}

TEST_F(LoudSendersTest, OneLostFewerIsNotEnough) {
  overfillUntilLost(stranger, LoudSenders::LOOK_INTERVAL - 1);
  ASSERT_TRUE(read(LoudSenders::LOOK_INTERVAL));
  EXPECT_TRUE(hears(stranger));
}

TEST_F(LoudSendersTest, WhileOneIsNotListenedToOthersMayStillSendWhatFitsIn) {
  silenceStranger();
  for (int number = 0; number < 3 * int{LoudSenders::LOOK_INTERVAL}; ++number) {
    // What is dropped of the stranger's is no reason to drop anybody else's.
    stranger.send("x", receiver->port());
    ASSERT_TRUE(hears(device)) << number;
  }
}

TEST_F(LoudSendersTest, WhoeverSendsMuchThatIsReadIsListenedTo) {
  for (int number = 0; number < MANY; ++number) {
    stranger.send("x", receiver->port());
    ASSERT_TRUE(read(1)) << number;
  }
  EXPECT_TRUE(hears(stranger));
}

TEST_F(LoudSendersTest, WhatWasLostBeforeIsNoReasonToLeaveOutWhoSendsMuchNow) {
  overfill(stranger);
  sendWithoutLoss(readAll());
  EXPECT_TRUE(hears(device));
}

TEST_F(LoudSendersTest, WhatAnEarlierSocketLostDoesNotCount) {
  overfill(stranger);
  const std::uint32_t held = readAll();
  loudSenders->forget();
  receiver = std::make_unique<UdpSocket>();
  sendWithoutLoss(held);
  EXPECT_TRUE(hears(device));
}

TEST_F(LoudSendersTest, WhoWasLeftOutOfAnEarlierSocketCanBeLeftOutOfTheNextOne) {
  silenceStranger();
  loudSenders->forget();
  receiver = std::make_unique<UdpSocket>();
  EXPECT_TRUE(hears(stranger));
  silenceStranger();
}

TEST_F(LoudSendersTest, ManySendersCanBeLeftOutAndLetInAgain) {
  std::vector<std::uint32_t> senders;
  for (std::uint32_t number = 0; number + 1 < platform::FILTERED_SENDERS_LIMIT; ++number) {
    senders.push_back(0xC0000200 + number);
  }
  senders.push_back(0x7F000002);
  ASSERT_TRUE(platform::dropDatagramsFrom(receiver->descriptor(), senders));
  EXPECT_FALSE(hears(stranger));
  EXPECT_TRUE(hears(device));
  senders.front() = 0x7F000003;
  ASSERT_TRUE(platform::dropDatagramsFrom(receiver->descriptor(), senders));
  EXPECT_FALSE(hears(stranger));
  EXPECT_FALSE(hears(device));
  ASSERT_TRUE(platform::dropDatagramsFrom(receiver->descriptor(), {}));
  EXPECT_TRUE(hears(stranger));
  EXPECT_TRUE(hears(device));
}

TEST_F(LoudSendersTest, WithoutASocketNothingHappens) {
  EXPECT_EQ(platform::receiveBufferOf(-1), std::nullopt);
  EXPECT_FALSE(platform::dropDatagramsFrom(-1, {}));
  for (std::uint32_t number = 0; number < 3 * LoudSenders::LOOK_INTERVAL; ++number) {
    loudSenders->heard(number, -1);
  }
  loudSenders->forget();
}

}  // namespace
}  // namespace ravelin
