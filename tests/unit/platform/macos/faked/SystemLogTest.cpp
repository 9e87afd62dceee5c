#include "platform/SystemLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/LogLine.h"
#include "fakes/FakeLogService.h"
#include "support/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

using fakes::FakeLogService;
using test::Channel;
using test::StandardErrorReplacement;
using testing::ElementsAre;
using Level = SystemLog::Level;
using Record = FakeLogService::Record;

class MacSystemLogTest : public testing::Test {
 protected:
  static std::unique_ptr<SystemLog> open(bool copies = false) {
    return SystemLog::open("Ravelin Disk", "Daemon", copies);
  }

  /// What the service has got of one message.
  std::string recorded(const std::string& message) {
    open()->log(Level::error, message);
    const auto records = service.records();
    return records.empty() ? "" : records.back().message;
  }

  FakeLogService service;
};

TEST_F(MacSystemLogTest, LinesOfEveryLevelReachTheServiceUnderTheirIdentity) {
  const auto log = open();
  log->log(Level::info, "Server has been started!");
  log->log(Level::warning, "odd");
  log->log(Level::error, "Server could not read data");
  EXPECT_THAT(service.records(),
              ElementsAre(Record{"Ravelin Disk", "Daemon", 6, "Server has been started!"},
                          Record{"Ravelin Disk", "Daemon", 4, "odd"},
                          Record{"Ravelin Disk", "Daemon", 3, "Server could not read data"}));
}

TEST_F(MacSystemLogTest, WhatHasBeenExpandedIsData) {
  EXPECT_EQ(recorded("100%% of %%s and %%n"), "100% of %s and %n");
  EXPECT_EQ(recorded("%d %s %@ %n|%y"), "0 (null) (null) |%y");
  EXPECT_EQ(SystemLog::open("%s%n", "%d", false)->log(Level::info, "x"), 1U);
  EXPECT_EQ(service.records().back(), (Record{"%s%n", "%d", 6, "x"}));
}

TEST_F(MacSystemLogTest, ToTheServiceAMessageIsOneRecordAsItIs) {
  EXPECT_EQ(recorded("one\ntwo\t\x1B[2J \\"), "one\ntwo\t\x1B[2J \\");
  EXPECT_EQ(recorded(""), "");
  EXPECT_EQ(service.records().size(), 2U);
}

TEST_F(MacSystemLogTest, LongLinesAreCut) {
  const std::string line = recorded(std::string(3 * LOG_LINE_LIMIT, 'x'));
  EXPECT_EQ(line.size(), LOG_LINE_LIMIT);
  EXPECT_THAT(line, testing::EndsWith("xx [cut]"));
  EXPECT_EQ(open()->log(Level::info, std::string(3 * LOG_LINE_LIMIT, 'x')), LOG_LINE_LIMIT);
}

TEST_F(MacSystemLogTest, TheCopyOnStandardErrorIsTheServicesOwn) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  open(true)->log(Level::info, "one\ntwo %%d");
  EXPECT_THAT(channel.read(),
              testing::MatchesRegex("[^\n]* Ravelin Disk\\[[0-9]+\\] <Info>: one\n\ttwo %d\n"));
  open(false)->log(Level::info, "text");
  EXPECT_EQ(channel.read(), "");
}

TEST_F(MacSystemLogTest, NothingOnStandardErrorCommandsATerminalOrLooksLikeAnotherLine) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  open(true)->log(Level::info, "a\x1B[2Jb\rc\td\x7F\xC2\x9B\xFF \\ \xC3\xA4\ne");
  EXPECT_THAT(channel.read(), testing::EndsWith("<Info>: a\\x1b[2Jb\\rc\\td\\x7f\\xc2\\x9b\\xff "
                                                "\\ \xC3\xA4\n\te\n"));
  EXPECT_EQ(open(true)->log(Level::info, std::string(LOG_LINE_LIMIT, '\x1B')), LOG_LINE_LIMIT);
  EXPECT_TRUE(service.records().back().message.ends_with(" [cut]"));
  EXPECT_TRUE(service.records().back().message.starts_with("\\x1b\\x1b"));
}

TEST_F(MacSystemLogTest, EachLogIsAClientThatIsClosedWithIt) {
  {
    const auto one = open();
    const auto two = SystemLog::open("Other", "User", false);
    EXPECT_EQ(service.clients(), 2);
    two->log(Level::info, "b");
    one->log(Level::info, "a");
  }
  EXPECT_EQ(service.clients(), 0);
  EXPECT_THAT(service.records(), ElementsAre(Record{"Other", "User", 6, "b"},
                                             Record{"Ravelin Disk", "Daemon", 6, "a"}));
}

TEST_F(MacSystemLogTest, SeveralThreadsShareAClientInTurn) {
  const auto log = open();
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&log, letter] {
      for (int line = 0; line < 50; ++line) {
        log->log(Level::info, std::string(100, letter));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto records = service.records();
  EXPECT_EQ(records.size(), 200U);
  for (const Record& record : records) {
    EXPECT_EQ(record.message, std::string(100, record.message.front()));
  }
}

TEST_F(MacSystemLogTest, WithoutAServiceNothingFails) {
  service.refuseClients();
  EXPECT_EQ(open()->log(Level::error, "text"), 4U);
}

}  // namespace
}  // namespace ravelin::platform
