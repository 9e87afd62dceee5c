#include "controller/MountedDisks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

#include "support/Announcements.h"

namespace ravelin {
namespace {

using test::makeDisk;
using test::Texts;
using testing::ElementsAre;
using testing::IsEmpty;

DiskPtr diskOf(Text mac, Text uuid) {
  return makeDisk({.event = "disk_mounted",
                   .mac = std::move(mac),
                   .ip = "192.0.2.1",
                   .uuid = std::move(uuid),
                   .label = "L"});
}

DiskPtr withUuid(Text uuid) { return makeDisk({.uuid = std::move(uuid)}); }

TEST(MountedDisksTest, ANewListIsEmpty) {
  const MountedDisks disks;
  EXPECT_EQ(disks.count(), 0U);
  EXPECT_THAT(disks.copy(), IsEmpty());
  EXPECT_EQ(disks.find(*withUuid("u")), nullptr);
  EXPECT_EQ(disks.find(*withUuid(std::nullopt)), nullptr);
  EXPECT_THAT(disks.ofDevice("m"), IsEmpty());
  EXPECT_THAT(disks.ofDevice(std::nullopt), IsEmpty());
}

TEST(MountedDisksTest, TheListKeepsTheOrderOfMounting) {
  MountedDisks disks;
  const DiskPtr one = diskOf("m1", "c");
  const DiskPtr two = diskOf("m2", "a");
  const DiskPtr three = diskOf("m1", "b");
  for (const DiskPtr& disk : {one, two, three}) {
    disks.append(disk);
  }
  EXPECT_THAT(disks.copy(), ElementsAre(one, two, three));
  EXPECT_THAT(disks.ofDevice("m1"), ElementsAre(one, three));
  disks.remove(*one);
  disks.append(one);
  EXPECT_THAT(disks.copy(), ElementsAre(two, three, one));
  EXPECT_THAT(disks.ofDevice("m1"), ElementsAre(three, one));
  EXPECT_EQ(disks.count(), 3U);
}

TEST(MountedDisksTest, TheFirstRecordWithTheUuidIsFound) {
  MountedDisks disks;
  const DiskPtr first = diskOf("m1", "u");
  const DiskPtr second = diskOf("m2", "u");
  disks.append(first);
  disks.append(second);
  EXPECT_EQ(disks.find(*withUuid("u")), first);
  disks.remove(*first);
  EXPECT_EQ(disks.find(*withUuid("u")), second);
  EXPECT_EQ(disks.find(*withUuid("U")), nullptr);
}

TEST(MountedDisksTest, ARecordWithoutUuidIsNotFoundByANullOne) {
  MountedDisks disks;
  disks.append(diskOf("m", std::nullopt));
  disks.append(diskOf(std::nullopt, ""));
  EXPECT_EQ(disks.find(*withUuid(std::nullopt)), nullptr);
  EXPECT_NE(disks.find(*withUuid("")), nullptr);
  EXPECT_THAT(disks.ofDevice(std::nullopt), IsEmpty());
}

TEST(MountedDisksTest, ARecordIsLetGoOfWhenItIsRemoved) {
  MountedDisks disks;
  disks.append(diskOf("m", "u"));
  disks.append(diskOf("m", "v"));
  disks.append(diskOf("m", "u"));
  const std::weak_ptr<Disk> watched = disks.find(*withUuid("u"));
  // The record itself is the argument, and nobody else keeps it.
  const Disk& record = *watched.lock();
  disks.remove(record);
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(disks.count(), 1U);
  EXPECT_THAT(disks.ofDevice("m"), ElementsAre(disks.find(*withUuid("v"))));
}

/// Random records, with texts from the alphabet, come and go; every result is that of a plain list.
void compareWithPlainList(const std::vector<Text>& alphabet, std::size_t size, int rounds) {
  constexpr unsigned SEED = 4201;
  std::mt19937 random(SEED);
  const auto any = [&] { return alphabet[random() % alphabet.size()]; };
  const auto anyDisk = [&] {
    return makeDisk({.event = any(), .mac = any(), .ip = any(), .uuid = any(), .label = any()});
  };
  MountedDisks disks;
  std::vector<DiskPtr> plain;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    if (random() % (2 * size) >= plain.size()) {
      const DiskPtr disk = anyDisk();
      disks.append(disk);
      plain.push_back(disk);
    } else {
      const DiskPtr disk = random() % 4 != 0 ? plain[random() % plain.size()] : anyDisk();
      disks.remove(*disk);
      std::erase_if(plain, [&](const DiskPtr& other) { return disk->isEqual(*other); });
    }
    ASSERT_EQ(disks.count(), plain.size());
    ASSERT_EQ(disks.copy(), plain);
    for (int question = 0; question < 5; ++question) {
      const Text text = any();
      const auto found = std::ranges::find_if(
          plain, [&](const DiskPtr& disk) { return text && disk->uuid() == text; });
      ASSERT_EQ(disks.find(*withUuid(text)), found == plain.end() ? nullptr : *found);
      std::vector<DiskPtr> ofDevice;
      std::ranges::copy_if(plain, std::back_inserter(ofDevice),
                           [&](const DiskPtr& disk) { return text && disk->macAddress() == text; });
      ASSERT_EQ(disks.ofDevice(text), ofDevice);
    }
  }
}

TEST(MountedDisksTest, AnswersWhatAPlainListAnswers) {
  compareWithPlainList({std::nullopt, "", "a", "b"}, 12, 40000);
}

TEST(MountedDisksTest, AnswersWhatAPlainListOfManyRecordsAnswers) {
  std::vector<Text> alphabet(10);
  for (int number = 0; number < 100; ++number) {
    alphabet.emplace_back(std::to_string(number));
  }
  compareWithPlainList(alphabet, 150, 8000);
}

}  // namespace
}  // namespace ravelin
