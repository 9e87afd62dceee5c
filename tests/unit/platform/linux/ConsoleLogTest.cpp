#include "platform/ConsoleLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

TEST(LinuxConsoleLogTest, NamesProgramProcessAndThread) {
  const test::Channel channel = test::Channel::pipe();
  {
    const test::StandardErrorReplacement replacement(channel.writer());
    consoleLog("text");
  }
  EXPECT_THAT(channel.read(),
              testing::HasSubstr(std::string(" ").append(program_invocation_short_name) + "[" +
                                 std::to_string(::getpid()) + ":" + std::to_string(::gettid()) +
                                 "] text\n"));
}

}  // namespace
}  // namespace ravelin::platform
