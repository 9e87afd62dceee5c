#include "platform/RunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fakes/FakeRunLoop.h"
#include "support/Pipe.h"
#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using std::chrono::steady_clock;
using test::Pipe;
using testing::ElementsAre;
using Seconds = RunLoop::Seconds;
using Calls = std::vector<std::string>;

/// A script waits for what it has asked for by running the thread's loop.
constexpr double SCRIPT = 0.35;

TEST(MacRunLoopTest, AScriptThatRunsTheLoopRunsNoneOfOurActions) {
  RunLoop& loop = RunLoop::main();
  const Pipe readable;
  const Pipe termination;
  readable.write();
  Calls calls;
  const auto urgent = loop.watchReadable(termination.reader(), RunLoop::Urgency::termination, [&] {
    termination.read();
    calls.emplace_back("termination");
  });
  std::unique_ptr<RunLoop::Watch> watch;
  std::unique_ptr<RunLoop::Timer> timer;
  bool wasScriptRun = false;
  loop.perform([&] {
    watch = loop.watchReadable(readable.reader(), RunLoop::Urgency::socket,
                               [&] { calls.emplace_back("socket"); });
    timer = loop.scheduleTimer(Seconds(0.1), [&] { calls.emplace_back("timer"); });
    loop.perform([&] { calls.emplace_back("handed over"); });
    termination.write();
    fakes::spinRunLoop(SCRIPT);
    wasScriptRun = true;
  });
  loop.runOnce(Seconds(10));
  ASSERT_TRUE(wasScriptRun);
  EXPECT_THAT(calls, testing::IsEmpty());
  // What has become ready meanwhile is called afterwards, termination first.
  loop.runOnce(Seconds(10));
  EXPECT_THAT(calls, ElementsAre("termination"));
  EXPECT_TRUE(test::runUntil([&] { return std::ranges::count(calls, "handed over") == 1; }));
}

TEST(MacRunLoopTest, AfterAScriptEverythingIsCalledThatBecameReady) {
  RunLoop& loop = RunLoop::main();
  const Pipe readable;
  readable.write();
  Calls calls;
  std::unique_ptr<RunLoop::Watch> watch;
  std::unique_ptr<RunLoop::Timer> timer;
  loop.perform([&] {
    watch = loop.watchReadable(readable.reader(), RunLoop::Urgency::socket, [&] {
      readable.read();
      calls.emplace_back("socket");
    });
    timer = loop.scheduleTimer(Seconds(0.1), [&] {
      calls.emplace_back("timer");
      timer.reset();
    });
    loop.perform([&] { calls.emplace_back("handed over"); });
    fakes::spinRunLoop(SCRIPT);
  });
  EXPECT_TRUE(test::runUntil([&] { return calls.size() == 3; }));
  EXPECT_THAT(calls, testing::UnorderedElementsAre("socket", "timer", "handed over"));
}

TEST(MacRunLoopTest, NothingOfOursEndsAScriptsWait) {
  RunLoop& loop = RunLoop::main();
  const Pipe readable;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [] {});
  const auto watch =
      loop.watchReadable(readable.reader(), RunLoop::Urgency::socket, [&] { readable.read(); });
  bool wasScriptRun = false;
  loop.perform([&] {
    readable.write();
    loop.perform([] {});
    EXPECT_TRUE(fakes::spinRunLoop(SCRIPT));
    wasScriptRun = true;
  });
  EXPECT_TRUE(test::runUntil([&] { return wasScriptRun; }));
}

TEST(MacRunLoopTest, ATimerSkipsWhatItMissedWhileItsOwnActionRanAScript) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.5), [&] {
    if (++ticks == 1) {
      fakes::spinRunLoop(0.6);
    }
  });
  ASSERT_TRUE(test::runUntil([&] { return ticks == 1; }));
  // The third interval is under way.
  loop.runOnce(Seconds(0));
  EXPECT_EQ(ticks, 1);
  loop.runOnce(Seconds(10));
  EXPECT_EQ(ticks, 2);
}

TEST(MacRunLoopTest, WhatTheSystemCallsItselfIsNotTheOneThingToDo) {
  RunLoop& loop = RunLoop::main();
  bool wasSystemCalled = false;
  bool wasOurs = false;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    fakes::postToMainLoop([&] { wasSystemCalled = true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    loop.perform([&] { wasOurs = true; });
  });
  loop.runOnce(Seconds(20));
  EXPECT_TRUE(wasSystemCalled);
  EXPECT_TRUE(wasOurs);
  other.join();
}

TEST(MacRunLoopTest, AWallClockThatIsSetBackDoesNotProlongTheWait) {
  RunLoop& loop = RunLoop::main();
  std::atomic<bool> isOver = false;
  bool wasRescued = false;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    fakes::moveWallClock(-3600);
    fakes::postToMainLoop([] {});
    const auto end = steady_clock::now() + std::chrono::seconds(10);
    while (!isOver && steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    loop.perform([&] { wasRescued = true; });
  });
  loop.runOnce(Seconds(0.3));
  isOver = true;
  EXPECT_FALSE(wasRescued);
  other.join();
  EXPECT_TRUE(test::runUntil([&] { return wasRescued; }));
}

TEST(MacRunLoopTest, AWallClockThatIsSetDoesNotMoveTimers) {
  RunLoop& loop = RunLoop::main();
  for (const double seconds : {-3600.0, 3600.0}) {
    int ticks = 0;
    const auto start = steady_clock::now();
    const auto timer = loop.scheduleTimer(Seconds(0.1), [&] {
      ++ticks;
      if (ticks == 1) {
        fakes::moveWallClock(seconds);
      }
    });
    EXPECT_TRUE(test::runUntil([&] { return ticks >= 4; }));
    EXPECT_GE(Seconds(steady_clock::now() - start).count(), 0.399);
  }
}

TEST(MacRunLoopTest, ADescriptorIsWatchedOnce) {
  RunLoop& loop = RunLoop::main();
  const Pipe pipe;
  pipe.write();
  int calls = 0;
  {
    const auto watch =
        loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
    ASSERT_NE(watch, nullptr);
    EXPECT_EQ(loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [] {}), nullptr);
    // The one that was refused has not taken the first one along.
    loop.runOnce(Seconds(10));
    loop.runOnce(Seconds(10));
    EXPECT_EQ(calls, 2);
  }
  const auto again = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
  ASSERT_NE(again, nullptr);
  loop.runOnce(Seconds(10));
  EXPECT_EQ(calls, 3);
}

TEST(MacRunLoopTest, WakingTheLoopWithoutEndKeepsNoTimerWaiting) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++ticks; });
  RunLoop::Action again = [&] {
    if (ticks < 3) {
      loop.perform(again);
    }
  };
  loop.perform(again);
  EXPECT_TRUE(test::runUntil([&] { return ticks >= 3; }));
}

}  // namespace
}  // namespace ravelin::platform
