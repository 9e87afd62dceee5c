#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "controller/Controller.h"
#include "intake/Server.h"
#include "support/RecordingLog.h"
#include "support/Shortcuts.h"
#include "support/TemporaryHome.h"
#include "support/Waiting.h"

namespace ravelin {
namespace {

using test::LogLine;
using Level = platform::SystemLog::Level;

class RecordFile : public testing::Test {
 protected:
  static void write(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
  }

  static std::string read(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  void writeRecord(const std::string& content) {
    std::filesystem::create_directories(home.userSupport());
    write(record, content);
  }

  std::string item(const std::string& label) const { return home.desktop() + "/" + label + ".app"; }

  void mount(const std::string& uuid, const std::string& label) {
    const std::string text =
        "event:disk_mounted;mac:m;ip:192.0.2.10;uuid:" + uuid + ";label:" + label;
    // The handler thread mounts the disk; this one, the main thread, makes the shortcut.
    Server server;
    controller.server(server, std::as_bytes(std::span(text)), {});
    ASSERT_TRUE(test::runUntil([this, before = controller.mountedDisks().size()] {
      return controller.mountedDisks().size() > before;
    }));
  }

  static LogLine found(const std::string& path) {
    return {Level::info, "Disk record " + path + " has been found. Delete the shortcut."};
  }

  test::TemporaryHome home;
  test::RecordingLog log;
  Controller controller;
  std::string record = home.userSupport() + "/RavelinDiskTempFile.txt";
};

TEST_F(RecordFile, WithoutDisksItHasThreeLines) {
  controller.recordMountedDisks();
  EXPECT_EQ(read(record), "Mounted Disks\nstart\nend");
}

TEST_F(RecordFile, MountedDisksAreListedInOrderAndReplaceTheEarlierFile) {
  writeRecord("something older and much longer than what comes, whatever that is going to be");
  mount("1", "B");
  mount("2", "A");
  controller.recordMountedDisks();
  EXPECT_EQ(read(record), "Mounted Disks\nstart\n" + item("B") + "\n" + item("A") + "\nend");
}

TEST_F(RecordFile, APercentSignIsReadAsADirective) {
  mount("1", "50%d%s100%%");
  controller.recordMountedDisks();
  EXPECT_EQ(read(record), "Mounted Disks\nstart\n" + item("500(null)100%") + "\nend");
}

TEST_F(RecordFile, ANulInALabelDoesNotTouchTheLinesAfterIt) {
  const std::string odd("a\0b%d\0", 6);
  mount("1", odd);
  mount("2", "B");
  controller.recordMountedDisks();
  const std::string line = item(std::string("a\0b0\0", 5));
  EXPECT_EQ(read(record), "Mounted Disks\nstart\n" + line + "\n" + item("B") + "\nend");
  log.take();
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(),
              testing::ElementsAre(
                  found(line),
                  LogLine{Level::error, "Error when deleting alias file. Reason: Invalid argument"},
                  found(item("B"))));
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(RecordFile, ALabelThatGrowsBeyondAllBoundsDoesNotTouchTheLinesAfterIt) {
  std::string huge;
  for (int count = 0; count < 8000; ++count) {
    huge += "%99999d";
  }
  mount("1", huge);
  mount("2", "B");
  controller.recordMountedDisks();
  EXPECT_TRUE(read(record).ends_with("\n" + item("B") + "\nend"));
}

TEST_F(RecordFile, AFailedWriteIsLoggedAndTheOldFileStays) {
  std::filesystem::create_directories(record + "/not empty");
  log.take();
  controller.recordMountedDisks();
  EXPECT_THAT(log.take(), testing::ElementsAre(
                              LogLine{Level::error, "Error writing file, reason: Is a directory"}));
  EXPECT_TRUE(std::filesystem::exists(record + "/not empty"));
}

TEST_F(RecordFile, ReadingLogsAndDeletesEveryListedShortcutAndKeepsFileAndRecords) {
  mount("1", "A");
  mount("2", "B");
  controller.recordMountedDisks();
  const std::string text = read(record);
  log.take();
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(), testing::ElementsAre(found(item("A")), found(item("B"))));
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
  EXPECT_EQ(read(record), text);
  EXPECT_EQ(controller.mountedDisks().size(), 2U);

  const LogLine gone{Level::error,
                     "Error when deleting alias file. Reason: No such file or directory"};
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(), testing::ElementsAre(found(item("A")), gone, found(item("B")), gone));
}

TEST_F(RecordFile, LinesOutsideStartAndEndAreIgnored) {
  for (const char* label : {"before", "one", "two", "after", "again"}) {
    test::writeShortcut(item(label), "");
  }
  writeRecord(item("before") + "\nstart\n" + item("one") + "\nstart\n" + item("two") + "\nend\n" +
              item("after") + "\nstart\n" + item("again"));
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(),
              testing::ElementsAre(found(item("one")), found(item("two")), found(item("again"))));
  EXPECT_TRUE(std::filesystem::exists(item("before")));
  EXPECT_TRUE(std::filesystem::exists(item("after")));
  EXPECT_FALSE(std::filesystem::exists(item("again")));
}

TEST_F(RecordFile, LeadingBlanksAndBlankLinesAreSkippedAndTrailingBlanksKept) {
  test::writeShortcut(item("one"), "");
  test::writeShortcut(item("two") + " ", "");
  writeRecord("start\n\n \t\r\n  " + item("one") + "\n\n" + item("two") + " \nend ");
  Controller::deleteRecordedDisks();
  // "end " is not "end": it is taken for a path.
  const auto lines = log.take();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0], found(item("one")));
  EXPECT_EQ(lines[1], found(item("two") + " "));
  EXPECT_EQ(lines[2], found("end "));
  EXPECT_EQ(lines[3].level, Level::error);
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(RecordFile, BlanksAndLineEndsOfUnicodeAreSkippedAsWell) {
  const std::vector<std::string> blanks{"\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002",
                                        "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
                                        "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F",
                                        "\u3000", "\t",     "\v",     "\f",     "\r",     " "};
  std::string text = "start\n";
  std::vector<LogLine> expected;
  for (std::size_t number = 0; number < blanks.size(); ++number) {
    const std::string path = item(std::to_string(number));
    test::writeShortcut(path, "");
    text += blanks[number] + "\n" + blanks[number] + " " + path + "\n";
    expected.push_back(found(path));
  }
  writeRecord(text + "end");
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(), testing::ElementsAreArray(expected));
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(RecordFile, WhatIsNoBlankIsNotSkipped) {
  // Of no width, but no separators; and the first bytes of some that are.
  for (const std::string path : {"\u200B/x", "\uFEFF/x", "\u2010/x", "\u00A1/x", "\u3001/x"}) {
    writeRecord("start\n" + path + "\nend");
    Controller::deleteRecordedDisks();
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], found(path));
  }
}

TEST_F(RecordFile, AFileOfManyMebibytesIsRead) {
  test::writeShortcut(item("A"), "");
  writeRecord("Mounted Disks\n" + std::string(17UL * 1024 * 1024, '\n') + "start\n" + item("A") +
              "\nend");
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(), testing::ElementsAre(found(item("A"))));
  EXPECT_FALSE(std::filesystem::exists(item("A")));
}

TEST_F(RecordFile, WhatIsNoShortcutStaysAndCostsOneLine) {
  const LogLine kept{
      Level::error, "Error when deleting alias file. Reason: It is not a shortcut of Ravelin Disk"};
  write(item("File"), "the user's");
  test::writeShortcut(home.path() + "/target", "");
  std::filesystem::create_symlink(home.path() + "/target", item("Link"));
  writeRecord("start\n" + item("File") + "\n" + item("Link") + "\nend");
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(),
              testing::ElementsAre(found(item("File")), kept, found(item("Link")), kept));
  EXPECT_EQ(read(item("File")), "the user's");
  EXPECT_TRUE(std::filesystem::is_symlink(item("Link")));
}

TEST_F(RecordFile, AFileWithoutStartOrThatIsMissingOrNotUtf8DoesNothing) {
  Controller::deleteRecordedDisks();
  test::writeShortcut(item("A"), "");
  writeRecord("Mounted Disks\n" + item("A") + "\nend");
  Controller::deleteRecordedDisks();
  writeRecord("start\n" + item("A") + "\n\xFF\nend");
  Controller::deleteRecordedDisks();
  EXPECT_THAT(log.take(), testing::IsEmpty());
  EXPECT_TRUE(std::filesystem::exists(item("A")));
}

TEST_F(RecordFile, APathOutsideTheDesktopIsNotDeleted) {
  const std::string outside = home.path() + "/precious.app";
  test::writeShortcut(outside, "");
  writeRecord("start\n" + outside + "\n" + home.desktop() + "/../precious.app\nend");
  Controller::deleteRecordedDisks();
  EXPECT_EQ(log.take().size(), 4U);
  EXPECT_TRUE(std::filesystem::exists(outside));
}

}  // namespace
}  // namespace ravelin
