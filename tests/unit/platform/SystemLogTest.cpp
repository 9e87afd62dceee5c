#include "platform/SystemLog.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/LogTemplate.h"
#include "platform/linux/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;

TEST(SystemLogTest, CopiesLinesToStandardError) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  const std::unique_ptr<SystemLog> log = SystemLog::open("Ravelin Disk", "Daemon", true);
  log->log(SystemLog::Level::info, "Server has been started!");
  log->log(SystemLog::Level::error, "Server could not read data");
  EXPECT_EQ(channel.read(),
            "Ravelin Disk: Server has been started!\nRavelin Disk: Server could not read data\n");
}

TEST(SystemLogTest, CopiesNothingUnlessAsked) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  SystemLog::open("Ravelin Disk", "Daemon", false)->log(SystemLog::Level::info, "text");
  EXPECT_EQ(channel.read(), "");
}

TEST(SystemLogTest, ExpandsTemplates) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  const std::unique_ptr<SystemLog> log = SystemLog::open("100%d", "Daemon", true);
  log->log(SystemLog::Level::info, "%d%% %s %n%lf\n%@ %y %");
  EXPECT_EQ(channel.read(), "100%d: 0% (null) 0.000000\n(null) %y %\n");
}

TEST(SystemLogTest, WritesEmptyMessages) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  SystemLog::open("Ravelin Disk", "Daemon", true)->log(SystemLog::Level::info, "");
  EXPECT_EQ(channel.read(), "Ravelin Disk: \n");
}

TEST(SystemLogTest, SurvivesLongestMessageOnStandardErrorThatNobodyReads) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  const std::unique_ptr<SystemLog> log = SystemLog::open("Ravelin Disk", "Daemon", true);
  for (int line = 0; line < 10; ++line) {
    log->log(SystemLog::Level::info, std::string(2 * LOG_TEMPLATE_LIMIT, 'x'));
  }
  EXPECT_EQ(channel.read().substr(0, 20), "Ravelin Disk: xxxxxx");
  log->log(SystemLog::Level::info, "next");
  EXPECT_EQ(channel.read(), "\nRavelin Disk: next\n");
}

TEST(SystemLogTest, WritesLinesOfSeveralThreadsWhole) {
  const Channel channel = Channel::pipe();
  const std::unique_ptr<SystemLog> log = SystemLog::open("Ravelin Disk", "Daemon", true);
  std::string copied;
  {
    const StandardErrorReplacement replacement(channel.writer());
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (char letter : {'a', 'b', 'c', 'd'}) {
      threads.emplace_back([&log, letter] {
        for (int line = 0; line < 25; ++line) {
          log->log(SystemLog::Level::info, std::string(500, letter));
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    copied = channel.read();
  }
  const std::string head = "Ravelin Disk: ";
  const std::size_t length = head.size() + 500 + 1;
  ASSERT_EQ(copied.size(), 100 * length);
  for (std::size_t start = 0; start < copied.size(); start += length) {
    const std::string line = copied.substr(start, length);
    EXPECT_EQ(line, head + std::string(500, line[head.size()]) + "\n");
  }
}

}  // namespace
}  // namespace ravelin::platform
