#include "platform/ConsoleLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/LogLine.h"
#include "support/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;
using testing::EndsWith;

/// What the text becomes on standard error, behind what the system puts in front.
std::string written(std::string_view text) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  consoleLog(text);
  const std::string line = channel.read();
  const std::size_t head = line.find("] ");
  return head == std::string::npos ? line : line.substr(head + 2);
}

TEST(MacConsoleLogTest, TakesTextAsData) {
  EXPECT_EQ(written("%d %s %@ %n 100%"), "%d %s %@ %n 100%\n");
  EXPECT_EQ(written("\xC3\xA4\xF0\x9F\x92\xBE"), "\xC3\xA4\xF0\x9F\x92\xBE\n");
}

TEST(MacConsoleLogTest, WhatIsNoTextIsShownToo) {
  EXPECT_EQ(written(std::string_view("a\0b\xFFz", 5)), "a\\x00b\\xffz\n");
  EXPECT_EQ(written("one\ntwo"), "one\n\ttwo\n");
}

TEST(MacConsoleLogTest, CutsLongText) {
  const std::string line = written(std::string(100'000, 'x'));
  EXPECT_EQ(line.size(), LOG_LINE_LIMIT + 1);
  EXPECT_THAT(line, EndsWith("xxx [cut]\n"));
  EXPECT_EQ(consoleLog(std::string(100'000, 'x')), LOG_LINE_LIMIT);
  EXPECT_EQ(consoleLog("text"), 4U);
}

}  // namespace
}  // namespace ravelin::platform
