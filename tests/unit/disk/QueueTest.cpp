#include "disk/Queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/Announcements.h"

namespace ravelin {
namespace {

using test::makeDisk;
using test::Texts;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

bool someReceiverIsEqual(const std::list<DiskPtr>& disks, const Disk& other) {
  return std::ranges::any_of(disks, [&](const DiskPtr& disk) { return disk->isEqual(other); });
}

TEST(QueueTest, AnEmptyQueueGivesNull) {
  Queue queue;
  EXPECT_EQ(queue.dequeue(), nullptr);
  EXPECT_EQ(queue.dequeue(), nullptr);
  EXPECT_EQ(queue.count(), 0U);
  EXPECT_TRUE(queue.elements().empty());
}

TEST(QueueTest, DisksComeOutInTheOrderInWhichTheyWentIn) {
  Queue queue;
  const DiskPtr first = makeDisk({.uuid = "1"});
  const DiskPtr second = makeDisk({.uuid = "2"});
  const DiskPtr third = makeDisk({.uuid = "3"});
  queue.enqueue(first);
  queue.enqueue(second);
  queue.enqueue(third);
  EXPECT_EQ(queue.count(), 3U);
  EXPECT_THAT(queue.elements(), ElementsAre(first, second, third));
  EXPECT_EQ(queue.dequeue(), first);
  EXPECT_EQ(queue.dequeue(), second);
  EXPECT_THAT(queue.elements(), ElementsAre(third));
  EXPECT_EQ(queue.dequeue(), third);
  EXPECT_EQ(queue.dequeue(), nullptr);
}

TEST(QueueTest, TheSameDiskMayWaitTwice) {
  Queue queue;
  const DiskPtr disk = makeDisk({.uuid = "1"});
  queue.enqueue(disk);
  queue.enqueue(disk);
  EXPECT_EQ(queue.dequeue(), disk);
  EXPECT_TRUE(queue.containsReceiverEqualTo(*disk));
  EXPECT_EQ(queue.dequeue(), disk);
  EXPECT_FALSE(queue.containsReceiverEqualTo(*disk));
}

TEST(QueueTest, AWaitingDiskLivesAndTheQueueLetsGoOfOneThatHasLeft) {
  std::weak_ptr<Disk> watched;
  {
    Queue queue;
    queue.enqueue(makeDisk({.uuid = "1"}));
    queue.enqueue(makeDisk({.uuid = "2"}));
    watched = queue.elements().front();
    EXPECT_FALSE(watched.expired());
    DiskPtr handedOver = queue.dequeue();
    EXPECT_EQ(handedOver->uuid(), "1");
    handedOver.reset();
    EXPECT_TRUE(watched.expired());
    watched = queue.elements().front();
  }
  EXPECT_TRUE(watched.expired());
}

TEST(QueueTest, AWaitingEventWithFewTextsStandsForAllThatHaveThem) {
  Queue queue;
  const DiskPtr noDisk = makeDisk({.event = "no_disk", .mac = "m"});
  const DiskPtr more = makeDisk({.event = "no_disk", .mac = "m", .uuid = "u"});
  queue.enqueue(noDisk);
  EXPECT_TRUE(queue.containsReceiverEqualTo(*more));
  queue.dequeue();
  queue.enqueue(more);
  EXPECT_FALSE(queue.containsReceiverEqualTo(*noDisk));
}

TEST(QueueTest, AWaitingEventWithoutTextsStandsForEverything) {
  Queue queue;
  queue.enqueue(makeDisk({}));
  EXPECT_TRUE(queue.containsReceiverEqualTo(Disk()));
  EXPECT_TRUE(queue.containsReceiverEqualTo(*makeDisk({.label = "x"})));
}

TEST(QueueTest, TheSizeOfTheWaitingTextsIsKnown) {
  Queue queue;
  EXPECT_EQ(queue.tally().all().text, 0U);
  queue.enqueue(makeDisk({.event = "12", .mac = "345", .ip = "", .label = "6789"}));
  EXPECT_EQ(queue.tally().all().text, 9U);
  queue.enqueue(makeDisk({.ip = "0", .uuid = std::string(1000, 'u')}));
  EXPECT_EQ(queue.tally().all().text, 1010U);
  queue.dequeue();
  EXPECT_EQ(queue.tally().all().text, 1001U);
  queue.dequeue();
  EXPECT_EQ(queue.tally().all().text, 0U);
}

/// Random disks, with texts from the alphabet, come and go; every result is that of a walk.
void compareWithWalk(const std::vector<Text>& alphabet, int rounds) {
  constexpr unsigned SEED = 7710;
  std::mt19937 random(SEED);
  const auto any = [&] { return alphabet[random() % alphabet.size()]; };
  const auto anyDisk = [&] {
    return makeDisk({.event = any(), .mac = any(), .ip = any(), .uuid = any(), .label = any()});
  };
  Queue queue;
  std::list<DiskPtr> plain;
  int found = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    // Grows and empties by turns.
    const bool growing = round / 50 % 2 == 0;
    if (random() % 4 < (growing ? 3U : 1U)) {
      const DiskPtr disk = !plain.empty() && random() % 8 == 0 ? plain.back() : anyDisk();
      queue.enqueue(disk);
      plain.push_back(disk);
    } else {
      const DiskPtr expected = plain.empty() ? nullptr : plain.front();
      ASSERT_EQ(queue.dequeue(), expected);
      if (!plain.empty()) {
        plain.pop_front();
      }
    }
    const DiskPtr asked =
        !plain.empty() && random() % 4 == 0
            ? *std::next(plain.begin(), static_cast<std::ptrdiff_t>(random() % plain.size()))
            : anyDisk();
    const bool expected = someReceiverIsEqual(plain, *asked);
    found += expected ? 1 : 0;
    ASSERT_EQ(queue.containsReceiverEqualTo(*asked), expected);
    ASSERT_EQ(queue.count(), plain.size());
    ASSERT_EQ(queue.elements(), plain);
  }
  // Both results must have been frequent.
  EXPECT_GT(found, rounds / 6);
  EXPECT_LT(found, rounds - rounds / 6);
}

TEST(QueueTest, AnswersWhatAWalkOverTheWaitingDisksAnswers) {
  compareWithWalk({std::nullopt, "", "a", "b"}, 60000);
}

TEST(QueueTest, AnswersWhatAWalkAnswersWhenHardlyTwoDisksAreAlike) {
  std::vector<Text> alphabet(40);
  for (int number = 0; number < 200; ++number) {
    alphabet.emplace_back(std::to_string(number));
  }
  compareWithWalk(alphabet, 20000);
}

TEST(QueueTest, AFloodComesAndGoes) {
  Queue queue;
  for (int number = 0; number < 30000; ++number) {
    queue.enqueue(makeDisk({.event = "no_disk", .mac = std::to_string(number)}));
  }
  for (int number = 0; number < 30000; ++number) {
    const DiskPtr disk = makeDisk({.event = "no_disk", .mac = std::to_string(number), .uuid = "u"});
    ASSERT_TRUE(queue.containsReceiverEqualTo(*disk));
    ASSERT_EQ(queue.dequeue()->macAddress(), disk->macAddress());
    ASSERT_FALSE(queue.containsReceiverEqualTo(*disk));
  }
  EXPECT_EQ(queue.count(), 0U);
  EXPECT_EQ(queue.tally().all().text, 0U);
}

DiskPtr eventOf(std::uint32_t sender, int number) {
  const DiskPtr disk = makeDisk({.event = "no_disk", .mac = std::to_string(number)});
  disk->setSender(sender);
  return disk;
}

std::vector<DiskPtr> drained(Queue& queue) {
  std::vector<DiskPtr> all;
  while (DiskPtr disk = queue.dequeue()) {
    all.push_back(std::move(disk));
  }
  return all;
}

TEST(QueueTest, WhileNobodyFloodsEventsOfManySendersLeaveInTheOrderInWhichTheyCame) {
  std::mt19937 random(12);
  Queue queue;
  std::vector<DiskPtr> sent;
  for (int number = 0; number < int{Queue::TURN}; ++number) {
    std::vector<std::uint32_t> senders{1, 2, 3, 4, 5};
    std::ranges::shuffle(senders, random);
    for (const std::uint32_t sender : senders) {
      sent.push_back(eventOf(sender, number));
      queue.enqueue(sent.back());
    }
  }
  EXPECT_EQ(drained(queue), sent);
}

TEST(QueueTest, WhatASenderHasBeyondItsTurnLetsTheEventsOfOthersPass) {
  Queue queue;
  std::vector<DiskPtr> flood;
  for (int number = 0; number < 3 * int{Queue::TURN}; ++number) {
    flood.push_back(eventOf(1, number));
    queue.enqueue(flood.back());
  }
  const DiskPtr honest = eventOf(2, 0);
  queue.enqueue(honest);
  const auto afterFirstTurn = flood.begin() + std::ptrdiff_t{Queue::TURN};
  std::vector<DiskPtr> expected(flood.begin(), afterFirstTurn);
  expected.push_back(honest);
  expected.insert(expected.end(), afterFirstTurn, flood.end());
  EXPECT_THAT(queue.elements(), testing::ElementsAreArray(expected));
  EXPECT_EQ(drained(queue), expected);
}

TEST(QueueTest, AFloodThatIsOverDoesNotChangeTheOrderOfWhatComesLater) {
  Queue queue;
  for (int number = 0; number <= static_cast<int>(Queue::TURN); ++number) {
    queue.enqueue(eventOf(1, number));
  }
  drained(queue);
  const DiskPtr first = eventOf(1, 100);
  const DiskPtr second = eventOf(1, 101);
  const DiskPtr third = eventOf(2, 102);
  for (const DiskPtr& event : {first, second, third}) {
    queue.enqueue(event);
  }
  EXPECT_THAT(drained(queue), ElementsAre(first, second, third));
}

TEST(QueueTest, AFloodThatGoesOnNeverPutsAnotherSenderOffForLongerThanATurn) {
  Queue queue;
  int number = 0;
  const auto flood = [&] {
    while (queue.tally().of(1).disks < 1000) {
      queue.enqueue(eventOf(1, number++));
    }
  };
  for (int round = 0; round < 50; ++round) {
    flood();
    const DiskPtr honest = eventOf(2, round);
    queue.enqueue(honest);
    std::size_t passed = 0;
    while (queue.dequeue() != honest) {
      flood();
      ASSERT_LE(++passed, Queue::TURN);
    }
  }
}

TEST(QueueTest, TheEventsOfOneSenderNeverOvertakeEachOther) {
  constexpr unsigned SEED = 91;
  std::mt19937 random(SEED);
  Queue queue;
  std::vector<std::list<DiskPtr>> plain(4);
  for (int round = 0; round < 30000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    const bool growing = round / 400 % 2 == 0;
    if (random() % 8 < (growing ? 5U : 3U)) {
      // The first sender has most.
      const auto sender = static_cast<std::uint32_t>(random() % 4 == 0 ? random() % 4 : 0);
      plain[sender].push_back(eventOf(sender, round));
      queue.enqueue(plain[sender].back());
    } else if (const DiskPtr head = queue.dequeue()) {
      ASSERT_EQ(head, plain[head->sender()].front());
      plain[head->sender()].pop_front();
    }
    std::size_t all = 0;
    for (std::uint32_t sender = 0; sender < plain.size(); ++sender) {
      ASSERT_EQ(queue.tally().of(sender).disks, plain[sender].size());
      all += plain[sender].size();
    }
    ASSERT_EQ(queue.tally().all().disks, all);
    ASSERT_EQ(queue.elements().size(), all);
  }
}

/// The promises to senders in their plainest form. What has left is not remembered: who has events
/// waiting goes on counting from the last of them, and everybody else begins with the head's turn.
class PlainQueue {
 public:
  /// Returns how many of those that wait it passes.
  std::size_t enqueue(const DiskPtr& disk) {
    Entry entry{.disk = disk, .firstTurn = turnOfHead(), .number = 0};
    for (const Entry& waiting : _entries) {
      if (waiting.disk->sender() == disk->sender()) {
        entry.firstTurn = waiting.firstTurn;
        entry.number = waiting.number + 1;
      }
    }
    std::size_t place = 0;
    while (place < _entries.size() && _entries[place].turn() <= entry.turn()) {
      ++place;
    }
    const std::size_t passed = _entries.size() - place;
    _entries.insert(_entries.begin() + static_cast<std::ptrdiff_t>(place), std::move(entry));
    return passed;
  }

  DiskPtr dequeue() {
    if (_entries.empty()) {
      return nullptr;
    }
    const DiskPtr head = _entries.front().disk;
    _entries.erase(_entries.begin());
    return head;
  }

  [[nodiscard]] std::list<DiskPtr> disks() const {
    std::list<DiskPtr> all;
    std::ranges::transform(_entries, std::back_inserter(all), &Entry::disk);
    return all;
  }

  [[nodiscard]] std::size_t turnOfHead() const {
    return _entries.empty() ? 0 : _entries.front().turn();
  }

 private:
  struct Entry {
    DiskPtr disk;
    std::size_t firstTurn;  // of its sender, since that had none waiting
    std::size_t number;     // among its sender's since then, from 0
    [[nodiscard]] std::size_t turn() const { return firstTurn + number / Queue::TURN; }
  };

  std::vector<Entry> _entries;
};

TEST(QueueTest, TurnsAreTakenAsIsPromisedWhoeverSendsWhen) {
  constexpr unsigned SEED = 4127;
  constexpr std::array<unsigned, 3> PHASES{6, 4, 1};
  std::mt19937 random(SEED);
  Queue queue;
  PlainQueue plain;
  int passing = 0;
  int emptied = 0;
  std::size_t lastTurn = 0;
  for (int round = 0; round < 20000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    // It grows, stays about as long, and empties by turns. Two of the senders have most of it, and
    // fall silent now and then.
    const unsigned enqueuedOfEight = PHASES.at(static_cast<std::size_t>(round / 300 % 3));
    const bool isFlooded = round / 100 % 7 != 0;
    if (random() % 8 < enqueuedOfEight) {
      const auto sender = static_cast<std::uint32_t>(
          isFlooded && random() % 4 != 0 ? random() % 2 : 2 + random() % 6);
      const DiskPtr disk = eventOf(sender, round);
      passing += plain.enqueue(disk) > 0 ? 1 : 0;
      queue.enqueue(disk);
    } else {
      lastTurn = std::max(lastTurn, plain.turnOfHead());
      const DiskPtr head = plain.dequeue();
      emptied += head != nullptr && plain.disks().empty() ? 1 : 0;
      ASSERT_EQ(queue.dequeue(), head);
    }
    ASSERT_EQ(queue.elements(), plain.disks());
  }
  // All of it must have happened often.
  EXPECT_GT(passing, 1000);
  EXPECT_GT(emptied, 100);
  EXPECT_GT(lastTurn, 8U);
}

TEST(QueueDeathTest, ANullDiskEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Queue queue;
  EXPECT_DEATH(queue.enqueue(nullptr),
               AllOf(HasSubstr("Queue::enqueue"), HasSubstr("disk != null")));
}

}  // namespace
}  // namespace ravelin
