#include "platform/ConsoleLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "support/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

/// What the action writes to standard error.
template <class Action>
std::string written(const Action& action) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  action();
  return channel.read();
}

TEST(ConsoleLogTest, PutsTimeAndProcessInFront) {
  EXPECT_THAT(written([] { consoleLog("ravelin-disk-agent 1.0.0"); }),
              MatchesRegex("[0-9]{4}-[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]"
                           "\\.[0-9]{3} [^ ]+\\[[0-9]+:[0-9]+\\] ravelin-disk-agent 1\\.0\\.0\n"));
}

TEST(ConsoleLogTest, ShowsLocalTime) {
  const auto shownTime = [] {
    const std::string line = written([] { consoleLog("text"); });
    tm parsed{};
    EXPECT_NE(::strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &parsed), nullptr) << line;
    parsed.tm_isdst = -1;
    return ::timegm(&parsed);
  };
  ASSERT_EQ(::setenv("TZ", "UTC0", 1), 0);
  ::tzset();
  EXPECT_NEAR(static_cast<double>(shownTime()), static_cast<double>(::time(nullptr)), 60);
  ASSERT_EQ(::setenv("TZ", "EAST-05:30", 1), 0);
  ::tzset();
  EXPECT_NEAR(static_cast<double>(shownTime()), static_cast<double>(::time(nullptr)) + 5.5 * 3600,
              60);
}

TEST(ConsoleLogTest, TakesTextAsData) {
  EXPECT_THAT(written([] { consoleLog("%d %s %n"); }), HasSubstr("] %d %s %n\n"));
  EXPECT_THAT(written([] { consoleLog(""); }), HasSubstr("] \n"));
}

TEST(ConsoleLogTest, ShowsControlCharactersAndSetsFurtherLinesIn) {
  EXPECT_THAT(written([] { consoleLog("one\ntwo\x1B[2J"); }), HasSubstr("] one\n\ttwo\\x1b[2J\n"));
  EXPECT_THAT(written([] { consoleLog(std::string_view("a\0b", 3)); }), HasSubstr("] a\\x00b\n"));
}

TEST(ConsoleLogTest, CutsLongText) {
  std::size_t size = 0;
  const std::string line = written([&] { size = consoleLog(std::string(100'000, 'x')); });
  EXPECT_EQ(line.size(), 8192U);
  EXPECT_EQ(size, 8192U);
  EXPECT_THAT(line, EndsWith("xxx [cut]\n"));
}

}  // namespace
}  // namespace ravelin::platform
