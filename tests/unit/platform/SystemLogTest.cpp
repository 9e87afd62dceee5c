#include "platform/SystemLog.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "base/LogLine.h"
#include "base/LogTemplate.h"
#include "support/StandardErrorReplacement.h"

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
  EXPECT_EQ(channel.read(), "100%d: 0% (null) 0.000000\n\t(null) %y %\n");
}

TEST(SystemLogTest, WritesEmptyMessages) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  SystemLog::open("Ravelin Disk", "Daemon", true)->log(SystemLog::Level::info, "");
  EXPECT_EQ(channel.read(), "Ravelin Disk: \n");
}

/// What the message becomes on standard error.
std::string copyOf(const std::string& message) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  const std::size_t size =
      SystemLog::open("Ravelin Disk", "Daemon", true)->log(SystemLog::Level::info, message);
  std::string copy = channel.read();
  EXPECT_EQ(copy.size(), size);
  return copy;
}

TEST(SystemLogTest, NoMessageLooksLikeAnotherOne) {
  EXPECT_EQ(copyOf("Received event message\nRavelin Disk: forged\n\n\tmore"),
            "Ravelin Disk: Received event message\n\tRavelin Disk: forged\n\t\n\t\\tmore\n");
  EXPECT_EQ(copyOf("a\rRavelin Disk: forged"), "Ravelin Disk: a\\rRavelin Disk: forged\n");
}

TEST(SystemLogTest, NoMessageDrivesTheTerminal) {
  EXPECT_EQ(copyOf("\x1B[2J\x1B]0;title\a\x7F\xC2\x9B\x34m"),
            "Ravelin Disk: \\x1b[2J\\x1b]0;title\\x07\\x7f\\xc2\\x9b4m\n");
}

TEST(SystemLogTest, BoundsTheLine) {
  const std::string head = "Ravelin Disk: ";
  const std::string mark = " [cut]\n";
  std::string whole = head;
  whole.append(LOG_LINE_LIMIT - head.size() - mark.size(), 'x').append(mark);
  for (const std::string& message :
       {std::string(LOG_LINE_LIMIT, 'x'), std::string(LOG_TEMPLATE_LIMIT, 'x')}) {
    EXPECT_EQ(copyOf(message), whole);
  }
  std::string dense;
  for (int count = 0; count < 280; ++count) {
    dense += "%512d";
  }
  EXPECT_EQ(copyOf(dense).size(), LOG_LINE_LIMIT);
  EXPECT_EQ(copyOf(std::string(LOG_LINE_LIMIT, '\x1B')).size(), LOG_LINE_LIMIT);
  const std::string fits(LOG_LINE_LIMIT - head.size() - 1, 'x');
  EXPECT_EQ(copyOf(fits), head + fits + "\n");
}

TEST(SystemLogTest, TellsTheSizeOfALineThatIsNotCopied) {
  const std::unique_ptr<SystemLog> log = SystemLog::open("Ravelin Disk", "Daemon", false);
  EXPECT_EQ(log->log(SystemLog::Level::info, "%5d"), 5U);
  EXPECT_EQ(log->log(SystemLog::Level::info, std::string(LOG_TEMPLATE_LIMIT, 'x')), LOG_LINE_LIMIT);
}

TEST(SystemLogTest, SurvivesLongestMessageOnStandardErrorThatNobodyReads) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  const std::unique_ptr<SystemLog> log = SystemLog::open("Ravelin Disk", "Daemon", true);
  log->log(SystemLog::Level::info, "first");
  for (int line = 0; line < 20; ++line) {
    log->log(SystemLog::Level::info, std::string(2 * LOG_TEMPLATE_LIMIT, 'x'));
  }
  EXPECT_EQ(channel.read().substr(0, 40), "Ravelin Disk: first\nRavelin Disk: xxxxxx");
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
