#include "intake/EventParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/Announcements.h"
#include "support/RecordingLog.h"

namespace ravelin {
namespace {

using test::bytesOf;
using test::info;
using test::receivedLine;
using test::RecordingLog;
using test::Texts;
using test::textsOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view EXAMPLE =
    "event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;uuid:1234-ABCD;label:USBDISK";
const Texts EXAMPLE_TEXTS{.event = "disk_mounted",
                          .mac = "02:00:00:00:00:01",
                          .ip = "192.0.2.10",
                          .uuid = "1234-ABCD",
                          .label = "USBDISK"};

/// What a message gives: null when there is no record.
std::optional<Texts> parsed(std::string_view message) {
  const DiskPtr disk = EventParser::parse(bytesOf(message));
  return disk ? std::optional(textsOf(*disk)) : std::nullopt;
}

class EventParserTest : public testing::Test {
 protected:
  RecordingLog log;
};

TEST_F(EventParserTest, TheExampleGivesItsFiveTextsAndOneLine) {
  EXPECT_EQ(EXAMPLE.size(), 83U);
  EXPECT_EQ(parsed(EXAMPLE), EXAMPLE_TEXTS);
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Received event message\n"
                               "event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;"
                               "uuid:1234-ABCD;label:USBDISK\n"
                               "Disk is\n"
                               "event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;"
                               "uuid:1234-ABCD;label:USBDISK;")));
}

TEST_F(EventParserTest, AParsedDiskHasNeitherVolumeNorTime) {
  const DiskPtr disk = EventParser::parse(bytesOf(EXAMPLE));
  EXPECT_EQ(disk->volumeReference(), 0);
  EXPECT_EQ(disk->lastUpdateTime(), std::nullopt);
}

TEST_F(EventParserTest, EmptyItemsChangeNothing) {
  EXPECT_EQ(parsed(std::string(EXAMPLE).append(";")), EXAMPLE_TEXTS);
  EXPECT_EQ(parsed(";;" + std::string(EXAMPLE)), EXAMPLE_TEXTS);
  EXPECT_EQ(parsed("event:disk_mounted;;mac:02:00:00:00:00:01;;;ip:192.0.2.10;uuid:1234-ABCD;"
                   "label:USBDISK;;"),
            EXAMPLE_TEXTS);
}

TEST_F(EventParserTest, PairsComeInAnyOrder) {
  EXPECT_EQ(parsed("label:USBDISK;uuid:1234-ABCD;ip:192.0.2.10;mac:02:00:00:00:00:01;"
                   "event:disk_mounted"),
            EXAMPLE_TEXTS);
}

TEST_F(EventParserTest, AStatusIsNotLogged) {
  EXPECT_EQ(parsed("event:disk_status"), (Texts{.event = "disk_status"}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EventParserTest, OnlyMountedAndUnmountedAreLogged) {
  for (const char* event : {"no_disk", "disk_status", "DISK_MOUNTED", "disk_mounted ",
                            " disk_unmounted", "disk_mounted\n", "other", ""}) {
    EXPECT_EQ(parsed(std::string("mac:m;event:") + event), (Texts{.event = event, .mac = "m"}));
  }
  EXPECT_EQ(parsed("mac:m"), (Texts{.mac = "m"}));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(parsed("event:disk_unmounted;uuid:u"), (Texts{.event = "disk_unmounted", .uuid = "u"}));
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Received event message\nevent:disk_unmounted;uuid:u\nDisk is\n"
                               "event:disk_unmounted;mac:(null);ip:(null);uuid:u;label:(null);")));
}

TEST_F(EventParserTest, TheEventThatCountsForTheLogIsTheLastOne) {
  parsed("event:disk_mounted;event:no_disk;mac:m");
  EXPECT_THAT(log.lines(), IsEmpty());
  parsed("event:no_disk;mac:m;event:disk_mounted");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(EventParserTest, ALineFeedAtTheEndBelongsToTheLastValue) {
  Texts expected = EXAMPLE_TEXTS;
  expected.label = "USBDISK\n";
  EXPECT_EQ(parsed(std::string(EXAMPLE).append("\n")), expected);
}

TEST_F(EventParserTest, NothingIsTrimmed) {
  const std::string odd(" \t\r\n\0\x7F\x01 ", 8);
  EXPECT_EQ(parsed("label:" + odd + ";uuid: u "), (Texts{.uuid = " u ", .label = odd}));
}

TEST_F(EventParserTest, AnEmptyValueIsNotAnAbsentOne) {
  EXPECT_EQ(parsed("label:"), (Texts{.label = ""}));
  EXPECT_EQ(parsed("event:;mac:;ip:;uuid:;label:"),
            (Texts{.event = "", .mac = "", .ip = "", .uuid = "", .label = ""}));
}

TEST_F(EventParserTest, AValueMayHoldColons) {
  EXPECT_EQ(parsed("label::;uuid::a:b:"), (Texts{.uuid = ":a:b:", .label = ":"}));
}

TEST_F(EventParserTest, TheLaterOfTwoValuesCounts) {
  EXPECT_EQ(parsed("label:one;label:two"), (Texts{.label = "two"}));
  EXPECT_EQ(parsed("label:one;label:"), (Texts{.label = ""}));
}

TEST_F(EventParserTest, ReadingSaysWhatBecameOfTheTextAndLogsNothing) {
  using Outcome = EventParser::Outcome;
  const auto read = [](std::string_view message, Disk::TextViews& texts) {
    return EventParser::read(bytesOf(message), texts);
  };
  Disk::TextViews whole;
  EXPECT_EQ(read(EXAMPLE, whole).outcome, Outcome::read);
  EXPECT_EQ(textsOf(Disk(whole)), EXAMPLE_TEXTS);
  Disk::TextViews odd;
  const auto reading = read("mac:m;uuid:u;Label:l;label:k", odd);
  EXPECT_EQ(reading.outcome, Outcome::unknownKey);
  EXPECT_EQ(reading.unknownKey, "Label");
  EXPECT_EQ(textsOf(Disk(odd)), (Texts{.mac = "m", .uuid = "u"}));
  Disk::TextViews nameless;
  const auto empty = read(":", nameless);
  EXPECT_EQ(empty.outcome, Outcome::unknownKey);
  EXPECT_EQ(empty.unknownKey, "");
  Disk::TextViews wide;
  EXPECT_EQ(read("mac:m;odd:\x80", wide).outcome, Outcome::notAscii);
  EXPECT_EQ(textsOf(Disk(wide)), Texts());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EventParserTest, AnUnknownKeyUndoesTheWholeMessage) {
  for (const char* item : {" label:x", "label :x", "Label:x", "LABEL:x", ":x", ":",
                           "::", "events:x", "even:x", "\nmac:x", "size:5", "label\n:x"}) {
    EXPECT_EQ(parsed(item), std::nullopt) << item;
    EXPECT_EQ(parsed(std::string(EXAMPLE).append(";").append(item)), std::nullopt) << item;
    EXPECT_EQ(parsed(std::string(item).append(";").append(EXAMPLE)), std::nullopt) << item;
  }
  EXPECT_EQ(parsed(std::string(EXAMPLE) + std::string(";label\0:x", 9)), std::nullopt);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EventParserTest, AnItemWithoutColonIsPassedOver) {
  for (const char* item : {"x", "event", "label", " ", "=", "\n"}) {
    EXPECT_EQ(parsed(std::string(EXAMPLE).append(";").append(item)), EXAMPLE_TEXTS) << item;
    EXPECT_EQ(parsed(std::string(item).append(";").append(EXAMPLE)), EXAMPLE_TEXTS) << item;
  }
  EXPECT_EQ(parsed("uuid:u;noise;label:l"), (Texts{.uuid = "u", .label = "l"}));
}

TEST_F(EventParserTest, OneByteOutsideAsciiLeavesARecordWithoutTexts) {
  for (const unsigned byte : {0x80U, 0xC3U, 0xFFU}) {
    const std::string foreign(1, static_cast<char>(byte));
    EXPECT_EQ(parsed(foreign), Texts());
    EXPECT_EQ(parsed(std::string(EXAMPLE) + foreign), Texts());
    EXPECT_EQ(parsed(foreign + std::string(EXAMPLE)), Texts());
    // Not null either, where an unknown key would make it so.
    EXPECT_EQ(parsed("unknown:" + foreign), Texts());
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EventParserTest, ThereIsARecordForEveryMessageWithoutPairs) {
  for (const char* message : {"", ";", ";;;", "nothing", "a;b;c"}) {
    EXPECT_EQ(parsed(message), Texts()) << message;
  }
  EXPECT_EQ(textsOf(*EventParser::parse({})), Texts());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EventParserTest, ConversionsStayInTheRecordAndReachTheLogAsTheyAre) {
  const std::string message = "event:disk_mounted;label:100%d%n%s%%";
  EXPECT_EQ(parsed(message), (Texts{.event = "disk_mounted", .label = "100%d%n%s%%"}));
  EXPECT_THAT(
      log.lines(),
      ElementsAre(info(receivedLine(message, {.event = "disk_mounted", .label = "100%d%n%s%%"}))));
}

TEST_F(EventParserTest, TheLargestDatagramIsReadWhole) {
  const std::string label(65536 - 6, 'x');
  EXPECT_EQ(parsed("label:" + label), (Texts{.label = label}));
  EXPECT_EQ(parsed(std::string(65536, ';')), Texts());
}

TEST_F(EventParserTest, WhatADeviceComposesIsReadBack) {
  constexpr unsigned SEED = 2303;
  std::mt19937 random(SEED);
  const auto any = [&]() -> Text {
    if (random() % 4 == 0) {
      return std::nullopt;
    }
    std::string text;
    for (auto length = random() % 12; length > 0; --length) {
      const char character = static_cast<char>(random() % 128);
      text += character == ';' ? ':' : character;
    }
    return text;
  };
  for (int round = 0; round < 5000; ++round) {
    const Texts texts{.event = any(), .mac = any(), .ip = any(), .uuid = any(), .label = any()};
    ASSERT_EQ(parsed(test::datagram(texts)), texts) << "seed " << SEED << ", round " << round;
  }
}

TEST_F(EventParserTest, SeveralThreadsMayParse) {
  {
    std::vector<std::jthread> threads;
    threads.reserve(3);
    for (int thread = 0; thread < 3; ++thread) {
      threads.emplace_back([] {
        for (int round = 0; round < 100; ++round) {
          EXPECT_EQ(parsed(EXAMPLE), EXAMPLE_TEXTS);
        }
      });
    }
  }
  EXPECT_EQ(log.lines().size(), 300U);
}

}  // namespace
}  // namespace ravelin
