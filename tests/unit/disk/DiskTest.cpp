#include "disk/Disk.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "support/Announcements.h"

namespace ravelin {
namespace {

using test::makeDisk;
using test::Texts;
using test::textsOf;

const Texts FULL{.event = "disk_mounted",
                 .mac = "02:00:00:00:00:01",
                 .ip = "192.0.2.10",
                 .uuid = "1234-ABCD",
                 .label = "USB"};

std::vector<Text Texts::*> everyText() {
  return {&Texts::event, &Texts::mac, &Texts::ip, &Texts::uuid, &Texts::label};
}

TEST(DiskTest, ANewDiskHasNothing) {
  const Disk disk;
  EXPECT_EQ(textsOf(disk), Texts());
  EXPECT_EQ(disk.volumeReference(), 0);
  EXPECT_EQ(disk.lastUpdateTime(), std::nullopt);
}

TEST(DiskTest, EveryTextIsKeptAsItIs) {
  const std::string odd("a\0;:% \n", 7);
  const Texts texts{.event = odd, .mac = "", .ip = "x", .uuid = odd + odd, .label = std::nullopt};
  EXPECT_EQ(textsOf(*makeDisk(texts)), texts);
}

TEST(DiskTest, LaterChangesOfAGivenTextDoNotReachTheDisk) {
  Text label = "USB";
  Disk disk;
  disk.setLabel(label);
  label->append("DISK");
  EXPECT_EQ(disk.label(), "USB");
  disk.setLabel(std::nullopt);
  EXPECT_EQ(disk.label(), std::nullopt);
}

TEST(DiskTest, VolumeReferencesAreSigned16BitNumbers) {
  Disk disk;
  disk.setVolumeReference(-32768);
  EXPECT_EQ(disk.volumeReference(), -32768);
  disk.setVolumeReference(32767);
  EXPECT_EQ(disk.volumeReference(), 32767);
}

TEST(DiskTest, ADiskWithNothingIsEqualToAnyButNotTheOtherWayRound) {
  const Disk empty;
  const DiskPtr full = makeDisk(FULL);
  EXPECT_TRUE(empty.isEqual(*full));
  EXPECT_FALSE(full->isEqual(empty));
  EXPECT_TRUE(empty.isEqual(Disk()));
  EXPECT_TRUE(full->isEqual(*full));
}

TEST(DiskTest, EachTextThatTheReceiverLacksMatchesAnything) {
  for (const auto text : everyText()) {
    Texts lacking = FULL;
    lacking.*text = std::nullopt;
    EXPECT_TRUE(makeDisk(lacking)->isEqual(*makeDisk(FULL)));
    EXPECT_FALSE(makeDisk(FULL)->isEqual(*makeDisk(lacking)));
  }
}

TEST(DiskTest, OneDifferentTextIsEnoughToBeUnequal) {
  for (const auto text : everyText()) {
    Texts different = FULL;
    different.*text = "different";
    EXPECT_FALSE(makeDisk(different)->isEqual(*makeDisk(FULL)));
    EXPECT_FALSE(makeDisk(FULL)->isEqual(*makeDisk(different)));
  }
}

TEST(DiskTest, AnEmptyTextIsNotAnAbsentOne) {
  for (const auto text : everyText()) {
    Texts empty = FULL;
    empty.*text = "";
    Texts absent = FULL;
    absent.*text = std::nullopt;
    EXPECT_FALSE(makeDisk(empty)->isEqual(*makeDisk(absent)));
    EXPECT_TRUE(makeDisk(absent)->isEqual(*makeDisk(empty)));
    EXPECT_FALSE(makeDisk(empty)->isEqual(*makeDisk(FULL)));
  }
}

TEST(DiskTest, LettersOfAnotherCaseMakeUnequal) {
  Texts small = FULL;
  small.label = "usb";
  EXPECT_FALSE(makeDisk(FULL)->isEqual(*makeDisk(small)));
}

TEST(DiskTest, StatusAndMountedEventsOfOneDiskAreUnequal) {
  Texts status = FULL;
  status.event = "disk_status";
  EXPECT_FALSE(makeDisk(FULL)->isEqual(*makeDisk(status)));
}

TEST(DiskTest, VolumeAndTimeTakeNoPartInEquality) {
  const DiskPtr one = makeDisk(FULL);
  const DiskPtr other = makeDisk(FULL);
  other->setVolumeReference(-7);
  other->setLastUpdateTime(Disk::Date(std::chrono::seconds(5)));
  EXPECT_TRUE(one->isEqual(*other));
  EXPECT_TRUE(other->isEqual(*one));
}

TEST(DiskTest, EqualityIsTheFivefoldRuleForAllSmallDisks) {
  constexpr unsigned SEED = 20240611;
  std::mt19937 random(SEED);
  const std::vector<Text> alphabet{std::nullopt, "", "a", "b"};
  const auto any = [&] { return alphabet[random() % alphabet.size()]; };
  for (int round = 0; round < 50000; ++round) {
    const Texts mine{.event = any(), .mac = any(), .ip = any(), .uuid = any(), .label = any()};
    Texts theirs{.event = any(), .mac = any(), .ip = any(), .uuid = any(), .label = any()};
    if (random() % 2 == 0) {
      // Mostly alike, or there would hardly be equal ones.
      const auto kept = everyText()[random() % 5];
      const Text different = theirs.*kept;
      theirs = mine;
      theirs.*kept = different;
    }
    bool expected = true;
    for (const auto text : everyText()) {
      expected = expected && (!(mine.*text) || (theirs.*text && *(mine.*text) == *(theirs.*text)));
    }
    ASSERT_EQ(makeDisk(mine)->isEqual(*makeDisk(theirs)), expected)
        << "seed " << SEED << ", round " << round;
  }
}

TEST(DiskTest, TheUpdateTimeIsKeptToTheTick) {
  Disk disk;
  const Disk::Date date = Disk::Date(Disk::Date::duration(1234567890123456789));
  disk.setLastUpdateTime(date);
  EXPECT_EQ(disk.lastUpdateTime(), date);
  disk.setLastUpdateTime(Disk::Date());
  EXPECT_EQ(disk.lastUpdateTime(), Disk::Date());
  disk.setLastUpdateTime(std::nullopt);
  EXPECT_EQ(disk.lastUpdateTime(), std::nullopt);
}

TEST(DiskTest, TheUpdateTimeIsReadWholeWhileAnotherThreadSetsIt) {
  const Disk::Date early{};
  const Disk::Date late{Disk::Date::duration(0x7EDCBA9876543210)};
  Disk disk;
  disk.setLastUpdateTime(early);
  std::jthread writer([&](const std::stop_token& stopped) {
    while (!stopped.stop_requested()) {
      disk.setLastUpdateTime(late);
      disk.setLastUpdateTime(early);
    }
  });
  for (int round = 0; round < 100000; ++round) {
    const auto read = disk.lastUpdateTime();
    ASSERT_TRUE(read == early || read == late);
  }
}

}  // namespace
}  // namespace ravelin
