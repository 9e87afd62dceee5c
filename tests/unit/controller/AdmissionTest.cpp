#include "controller/Admission.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/Announcements.h"

namespace ravelin {
namespace {

using namespace std::chrono_literals;

using test::makeDisk;
using test::Texts;
using testing::AllOf;
using testing::Eq;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;
using testing::StartsWith;
using Limit = Admission::Limit;

constexpr std::uint32_t DEVICE = 0xC0000205;
constexpr std::uint32_t STRANGER = 0xC0000263;
constexpr std::size_t MEBIBYTE = std::size_t{1024} * 1024;

DiskPtr from(std::uint32_t sender, const Texts& texts) {
  const DiskPtr disk = makeDisk(texts);
  disk->setSender(sender);
  return disk;
}

DiskPtr announced(std::uint32_t sender, const std::string& uuid,
                  const std::string& event = "disk_mounted") {
  return from(sender, {.event = event, .mac = "m", .ip = "i", .uuid = uuid, .label = "l"});
}

/// An event that makes no disk known.
DiskPtr noDisk(std::uint32_t sender, std::size_t number, std::size_t filler = 0) {
  return from(sender, {.event = "no_disk",
                       .mac = std::to_string(number),
                       .label = filler == 0 ? Text() : std::string(filler, 'x')});
}

class AdmissionTest : public testing::Test {
 protected:
  /// Mounts that many disks of the sender, of uuids that begin with the prefix.
  void mount(std::uint32_t sender, std::size_t count, const std::string& prefix = "d") {
    for (std::size_t number = 0; number < count; ++number) {
      known.append(announced(sender, prefix + std::to_string(number)));
    }
  }

  /// Does with the waiting events what the controller does.
  void handleOne() {
    const DiskPtr event = admission.next();
    if (event == nullptr) {
      return;
    }
    const DiskPtr record = known.find(*event);
    const bool mounts = event->eventName() == "disk_mounted" || event->eventName() == "disk_status";
    if (mounts && record == nullptr) {
      known.append(event);
    } else if (event->eventName() == "disk_unmounted" && record != nullptr) {
      known.remove(*record);
    }
  }
  void handleAll() {
    while (waiting.count() > 0) {
      handleOne();
    }
    ASSERT_EQ(admission.next(), nullptr);
  }

  Queue waiting;
  MountedDisks known;
  Admission admission{waiting, known};
};

// Known disks.

TEST_F(AdmissionTest, OneSenderMayHave1024KnownDisks) {
  mount(STRANGER, 1023);
  EXPECT_EQ(admission.admit(announced(STRANGER, "last")), std::nullopt);
  EXPECT_THAT(admission.admit(announced(STRANGER, "more")), Optional(Limit::knownDisksOfSender));
  handleAll();
  EXPECT_THAT(admission.admit(announced(STRANGER, "more")), Optional(Limit::knownDisksOfSender));
  EXPECT_THAT(admission.admit(announced(STRANGER, "more", "disk_status")),
              Optional(Limit::knownDisksOfSender));
  EXPECT_EQ(known.count(), 1024U);
  EXPECT_EQ(admission.admit(announced(DEVICE, "other")), std::nullopt);
}

TEST_F(AdmissionTest, WaitingAnnouncementsThatWouldMakeADiskKnownCount) {
  mount(STRANGER, 1000);
  for (int number = 0; number < 24; ++number) {
    EXPECT_EQ(admission.admit(announced(STRANGER, "new" + std::to_string(number))), std::nullopt);
  }
  EXPECT_THAT(admission.admit(announced(STRANGER, "more")), Optional(Limit::knownDisksOfSender));
  // The second announcement of a waiting disk adds none.
  EXPECT_EQ(admission.admit(announced(STRANGER, "new7", "disk_status")), std::nullopt);
}

TEST_F(AdmissionTest, AnnouncementsOfKnownDisksAndOfRemovalsDoNotFailAtTheKnownDisks) {
  mount(STRANGER, 1024);
  EXPECT_EQ(admission.admit(announced(STRANGER, "d0")), std::nullopt);
  EXPECT_EQ(admission.admit(announced(STRANGER, "d1", "disk_status")), std::nullopt);
  EXPECT_EQ(admission.admit(announced(STRANGER, "unheard of", "disk_unmounted")), std::nullopt);
  EXPECT_EQ(admission.admit(noDisk(STRANGER, 1)), std::nullopt);
  EXPECT_EQ(admission.admit(announced(DEVICE, "d2")), std::nullopt);
}

TEST_F(AdmissionTest, ThereMayBe4096KnownDisksInAll) {
  for (const std::uint32_t sender : {1U, 2U, 3U}) {
    mount(sender, 1024, std::to_string(sender) + "-");
  }
  mount(4, 1023, "4-");
  EXPECT_EQ(admission.admit(announced(DEVICE, "last")), std::nullopt);
  EXPECT_THAT(admission.admit(announced(DEVICE, "more")), Optional(Limit::knownDisks));
  handleAll();
  EXPECT_THAT(admission.admit(announced(DEVICE, "more")), Optional(Limit::knownDisks));
  EXPECT_EQ(admission.admit(announced(DEVICE, "3-7")), std::nullopt);
}

TEST_F(AdmissionTest, ADiskThatGoesMakesRoomForAnother) {
  mount(STRANGER, 1024);
  EXPECT_EQ(admission.admit(announced(STRANGER, "d5", "disk_unmounted")), std::nullopt);
  EXPECT_NE(admission.admit(announced(STRANGER, "new")), std::nullopt);
  handleAll();
  EXPECT_EQ(admission.admit(announced(STRANGER, "new")), std::nullopt);
  EXPECT_NE(admission.admit(announced(STRANGER, "more")), std::nullopt);
}

TEST_F(AdmissionTest, TheDiskThatIsBeingMountedCountsOnce) {
  mount(STRANGER, 1022);
  EXPECT_EQ(admission.admit(announced(STRANGER, "new")), std::nullopt);
  const DiskPtr event = admission.next();
  ASSERT_NE(event, nullptr);
  // Not on the list yet.
  EXPECT_EQ(admission.admit(announced(STRANGER, "new", "disk_status")), std::nullopt);
  EXPECT_EQ(admission.admit(announced(STRANGER, "second")), std::nullopt);
  EXPECT_NE(admission.admit(announced(STRANGER, "third")), std::nullopt);
  known.append(event);
  EXPECT_NE(admission.admit(announced(STRANGER, "third")), std::nullopt);
  known.remove(*known.find(*announced(DEVICE, "d0")));
  EXPECT_EQ(admission.admit(announced(STRANGER, "third")), std::nullopt);
  EXPECT_NE(admission.admit(announced(STRANGER, "fourth")), std::nullopt);
}

TEST_F(AdmissionTest, ADiskTakenOverFromAnotherSenderMeetsTheLimitAtItsTurn) {
  mount(STRANGER, 1024);
  mount(DEVICE, 1, "of device ");
  EXPECT_EQ(admission.admit(announced(STRANGER, "of device 0", "disk_unmounted")), std::nullopt);
  EXPECT_EQ(admission.admit(announced(STRANGER, "of device 0")), std::nullopt);
  handleAll();
  EXPECT_EQ(known.find(*announced(DEVICE, "of device 0")), nullptr);
  EXPECT_EQ(known.count(), 1024U);
}

TEST_F(AdmissionTest, ADiskThatGoesAndComesWhileAnnouncedKeepsItsPlace) {
  mount(DEVICE, 1024);
  EXPECT_EQ(admission.admit(announced(DEVICE, "d0", "disk_unmounted")), std::nullopt);
  EXPECT_EQ(admission.admit(announced(DEVICE, "d0", "disk_status")), std::nullopt);
  handleAll();
  EXPECT_NE(known.find(*announced(DEVICE, "d0")), nullptr);
  EXPECT_EQ(known.count(), 1024U);
}

// Waiting events.

TEST_F(AdmissionTest, AQueueThatWasReplacedIsCountedAnew) {
  mount(DEVICE, 1023);
  EXPECT_EQ(admission.admit(announced(DEVICE, "a")), std::nullopt);
  waiting = Queue();
  admission.queueWasReplaced();
  EXPECT_EQ(admission.admit(announced(DEVICE, "b")), std::nullopt);
  waiting = Queue();
  waiting.enqueue(announced(DEVICE, "c"));
  admission.queueWasReplaced();
  EXPECT_EQ(admission.admit(announced(DEVICE, "d")), Limit::knownDisksOfSender);
  handleAll();
  EXPECT_NE(known.find(*announced(DEVICE, "c")), nullptr);
}

TEST_F(AdmissionTest, OneSenderMayHave1024WaitingEvents) {
  for (std::size_t number = 0; number < 1024; ++number) {
    ASSERT_EQ(admission.admit(noDisk(STRANGER, number)), std::nullopt);
  }
  EXPECT_THAT(admission.admit(noDisk(STRANGER, 1024)), Optional(Limit::waitingEventsOfSender));
  mount(STRANGER, 1);
  EXPECT_THAT(admission.admit(announced(STRANGER, "d0")), Optional(Limit::waitingEventsOfSender));
  EXPECT_EQ(admission.admit(noDisk(DEVICE, 1024)), std::nullopt);
  handleOne();
  EXPECT_EQ(admission.admit(noDisk(STRANGER, 1024)), std::nullopt);
}

TEST_F(AdmissionTest, ThereMayBe16384WaitingEventsInAll) {
  for (std::size_t number = 0; number < 16384; ++number) {
    ASSERT_EQ(admission.admit(noDisk(static_cast<std::uint32_t>(number % 16), number)),
              std::nullopt);
  }
  EXPECT_THAT(admission.admit(noDisk(DEVICE, 1)), Optional(Limit::waitingEvents));
  handleOne();
  EXPECT_EQ(admission.admit(noDisk(DEVICE, 1)), std::nullopt);
  EXPECT_NE(admission.admit(noDisk(DEVICE, 2)), std::nullopt);
}

// Texts.

TEST_F(AdmissionTest, OneSenderMayHaveAMebibyteOfTexts) {
  constexpr std::size_t HALF = MEBIBYTE / 2;
  const DiskPtr record = announced(STRANGER, std::string(HALF, 'u'));
  known.append(record);
  // "no_disk" and "1" are texts, too.
  const std::size_t rest = MEBIBYTE - record->textSize() - 8;
  EXPECT_THAT(admission.admit(noDisk(STRANGER, 1, rest + 1)), Optional(Limit::textOfSender));
  EXPECT_EQ(admission.admit(noDisk(STRANGER, 1, rest)), std::nullopt);
  EXPECT_THAT(admission.admit(from(STRANGER, {.event = "", .mac = "x"})),
              Optional(Limit::textOfSender));
  EXPECT_EQ(admission.admit(noDisk(DEVICE, 1, rest)), std::nullopt);
}

TEST_F(AdmissionTest, ThereMayBe16MebibytesOfTextsInAll) {
  for (std::uint32_t sender = 1; sender <= 15; ++sender) {
    ASSERT_EQ(admission.admit(noDisk(sender, 1, MEBIBYTE - 8)), std::nullopt);
  }
  known.append(from(16, {.event = std::string(MEBIBYTE - 20, 'x')}));
  EXPECT_THAT(admission.admit(noDisk(DEVICE, 1, 13)), Optional(Limit::text));
  EXPECT_EQ(admission.admit(noDisk(DEVICE, 1, 12)), std::nullopt);
  EXPECT_THAT(admission.admit(noDisk(STRANGER, 1)), Optional(Limit::text));
}

TEST_F(AdmissionTest, TheTextOfTheEventBeingHandledCountsOnce) {
  const DiskPtr event = announced(STRANGER, std::string(MEBIBYTE / 2, 'u'));
  EXPECT_EQ(admission.admit(event), std::nullopt);
  ASSERT_EQ(admission.next(), event);
  const std::size_t rest = MEBIBYTE - event->textSize() - 8;
  EXPECT_NE(admission.admit(noDisk(STRANGER, 1, rest + 1)), std::nullopt);
  known.append(event);
  EXPECT_NE(admission.admit(noDisk(STRANGER, 1, rest + 1)), std::nullopt);
  EXPECT_EQ(admission.admit(noDisk(STRANGER, 1, rest)), std::nullopt);
}

// Random traffic, held against plain counting.

TEST_F(AdmissionTest, NoTrafficPassesTheLimitsAndNoneIsDroppedWithoutNeed) {
  constexpr unsigned SEED = 77;
  std::mt19937 random(SEED);
  int dropped = 0;
  int atTheirTurn = 0;
  for (int round = 0; round < 40000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    const auto sender = static_cast<std::uint32_t>(random() % 5);
    if (round / 4000 % 2 == 0 ? random() % 4 == 0 : random() % 4 != 0) {
      const std::size_t before = waiting.count();
      handleOne();
      atTheirTurn += before > waiting.count() + 1 ? 1 : 0;
    } else {
      const bool removes = random() % 8 == 0;
      const DiskPtr event = announced(sender, std::to_string(random() % 6000),
                                      removes             ? "disk_unmounted"
                                      : random() % 2 == 0 ? "disk_status"
                                                          : "disk_mounted");
      if (!waiting.containsReceiverEqualTo(*event)) {
        dropped += admission.admit(event) ? 1 : 0;
      }
    }
    ASSERT_LE(known.count(), 4096U);
    ASSERT_LE(waiting.count(), 16384U);
    ASSERT_LE(known.tally().of(sender).disks, 1024U);
    ASSERT_LE(waiting.tally().of(sender).disks, 1024U);
  }
  EXPECT_GT(dropped, 100);
  EXPECT_GT(atTheirTurn, 0);
  handleAll();
  // What is left are the records alone.
  for (std::uint32_t sender = 0; sender < 5; ++sender) {
    const std::string own = std::to_string(sender) + "-";
    const std::size_t room = std::min(1024 - known.tally().of(sender).disks, 4096 - known.count());
    for (std::size_t number = 0; number < room; ++number) {
      ASSERT_EQ(admission.admit(announced(sender, own + std::to_string(number))), std::nullopt);
    }
    ASSERT_NE(admission.admit(announced(sender, own)), std::nullopt);
    handleAll();
    while (known.tally().of(sender).disks > 500) {
      for (const DiskPtr& disk : known.copy()) {
        if (disk->sender() == sender) {
          known.remove(*disk);
          break;
        }
      }
    }
  }
}

// What is logged.

TEST_F(AdmissionTest, TheFirstDropOfASenderIsLogged) {
  const Admission::Time start{};
  EXPECT_THAT(admission.lineAbout(STRANGER, Limit::knownDisksOfSender, start),
              Optional(Eq("Announcements from 192.0.2.99 are dropped: 1024 of its disks are known, "
                          "and no sender may have more")));
  EXPECT_EQ(admission.lineAbout(STRANGER, Limit::waitingEventsOfSender, start), std::nullopt);
}

TEST_F(AdmissionTest, EveryLimitHasItsWordsAndNothingThatATemplateWouldExpand) {
  Admission::Time time{};
  std::set<std::string> lines;
  for (const Limit limit :
       {Limit::knownDisksOfSender, Limit::knownDisks, Limit::waitingEventsOfSender,
        Limit::waitingEvents, Limit::textOfSender, Limit::text}) {
    const Text line = admission.lineAbout(STRANGER, limit, time);
    EXPECT_THAT(line, Optional(AllOf(HasSubstr("192.0.2.99"), Not(HasSubstr("%")))));
    lines.insert(textOrNull(line));
    time += 1min;
  }
  EXPECT_EQ(lines.size(), 6U);
}

TEST_F(AdmissionTest, AFloodThatGoesOnIsLoggedOnce) {
  Admission::Time time{};
  EXPECT_NE(admission.lineAbout(STRANGER, Limit::text, time), std::nullopt);
  for (int second = 0; second < 600; ++second) {
    time += 1s;
    EXPECT_EQ(admission.lineAbout(STRANGER, Limit::text, time), std::nullopt);
  }
  time += 60s;
  EXPECT_NE(admission.lineAbout(STRANGER, Limit::text, time), std::nullopt);
}

TEST_F(AdmissionTest, FurtherSendersShareOneLineAMinute) {
  Admission::Time time{};
  EXPECT_THAT(admission.lineAbout(STRANGER, Limit::text, time),
              Optional(StartsWith("Announcements from 192.0.2.99 are dropped: ")));
  EXPECT_THAT(admission.lineAbout(DEVICE, Limit::text, time + 1s),
              Optional(StartsWith("Announcements of further senders are dropped, too; those from "
                                  "192.0.2.5 are dropped: ")));
  EXPECT_EQ(admission.lineAbout(7, Limit::text, time + 2s), std::nullopt);
}

TEST_F(AdmissionTest, MadeUpSendersDoNotFillTheLog) {
  Admission::Time time{};
  std::map<std::string, int> lines;
  std::uint32_t sender = 0;
  for (int minute = 0; minute < 10; ++minute) {
    for (int drop = 0; drop < 6000; ++drop) {
      time += 10ms;
      // One of them is there again and again, as if it began each time.
      const std::uint32_t who = drop % 200 == 0 ? STRANGER : ++sender;
      if (const Text line = admission.lineAbout(who, Limit::waitingEvents, time)) {
        ++lines[*line];
      }
    }
  }
  int all = 0;
  for (const auto& [line, count] : lines) {
    all += count;
  }
  EXPECT_GE(all, 10);
  EXPECT_LE(all, 22);
}

}  // namespace
}  // namespace ravelin
