#include "platform/linux/shortcut/ShortcutHelper.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "support/StandInChildProcesses.h"

namespace ravelin::platform {
namespace {

using std::chrono_literals::operator""h;
using std::chrono_literals::operator""ms;
using test::exited;
using test::ProgramCall;

ChildResult killed(bool timedOut) {
  return {.terminationStatus = SIGKILL, .wasSignalled = true, .timedOut = timedOut, .output = {}};
}

class ShortcutHelperTest : public testing::Test {
 protected:
  void willEnd(const ChildResult& result) {
    helper.answer = [result](const ProgramCall& /*call*/) { return result; };
  }

  test::StandInChildProcesses helper;
};

TEST_F(ShortcutHelperTest, TheHelperIsGivenItsArgumentsAndALimit) {
  ShortcutHelper(1234ms).run({"check", "a file"});
  const auto calls = helper.takeCalls();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"check", "a file"}));
  EXPECT_EQ(calls[0].limit, 1234ms);
}

TEST_F(ShortcutHelperTest, WhatAHelperSaysThatRanToItsEndIsTold) {
  ShortcutHelper program;
  willEnd(exited(0));
  EXPECT_EQ(program.run({"check", "file"}), true);
  willEnd(exited(1));
  EXPECT_EQ(program.run({"check", "file"}), false);
}

TEST_F(ShortcutHelperTest, EveryOtherEndSaysNothingAndTheHelperIsAskedAgain) {
  ShortcutHelper program;
  for (const ChildResult& result : {exited(2), exited(127), exited(-1), killed(false)}) {
    willEnd(result);
    EXPECT_EQ(program.run({"check", "file"}), std::nullopt);
  }
  helper.answer = [](const ProgramCall& /*call*/) -> ChildResult {
    throw LaunchException("not installed");
  };
  EXPECT_EQ(program.run({"check", "file"}), std::nullopt);
  EXPECT_EQ(helper.takeCalls().size(), 5U);
  willEnd(exited(0));
  EXPECT_EQ(program.run({"check", "file"}), true);
}

TEST_F(ShortcutHelperTest, AHelperThatHungIsLetAloneForThePauseWhateverItIsAskedFor) {
  for (const char* command : {"check", "set"}) {
    ShortcutHelper program(3000ms, 1h);
    willEnd(killed(true));
    EXPECT_EQ(program.run({command, "file"}), std::nullopt);
    willEnd(exited(0));
    EXPECT_EQ(program.run({"check", "file"}), std::nullopt);
    EXPECT_EQ(program.run({"set", "file", "picture"}), std::nullopt);
    EXPECT_EQ(helper.takeCalls().size(), 1U);
  }
}

TEST_F(ShortcutHelperTest, AfterThePauseTheHelperIsAskedAgain) {
  ShortcutHelper program(3000ms, 50ms);
  willEnd(killed(true));
  EXPECT_EQ(program.run({"check", "file"}), std::nullopt);
  std::this_thread::sleep_for(60ms);
  EXPECT_EQ(program.run({"check", "file"}), std::nullopt);
  std::this_thread::sleep_for(60ms);
  willEnd(exited(0));
  EXPECT_EQ(program.run({"check", "file"}), true);
  EXPECT_EQ(helper.takeCalls().size(), 3U);
}

}  // namespace
}  // namespace ravelin::platform
