// What the run loop of Linux promises beyond the others.

#include "platform/RunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/Pipe.h"
#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using test::Pipe;
using testing::ElementsAre;
using Seconds = RunLoop::Seconds;

TEST(LinuxRunLoopTest, TheSmallestIntervalIsATenthOfASecond) {
  EXPECT_EQ(RunLoop::SMALLEST_INTERVAL, Seconds(0.1));
}

void doOneThingPerTurnTheMostUrgentFirst() {
  auto& loop = RunLoop::current();
  std::vector<std::string> calls;
  const Pipe readable;
  Pipe hungUp;
  const Pipe termination;
  const auto socket = loop.watchReadable(readable.reader(), RunLoop::Urgency::socket,
                                         [&] { calls.emplace_back("socket"); });
  const auto broken = loop.watchReadable(hungUp.reader(), RunLoop::Urgency::socket,
                                         [&] { calls.emplace_back("socket"); });
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { calls.emplace_back("timer"); });
  const auto urgent = loop.watchReadable(termination.reader(), RunLoop::Urgency::termination, [&] {
    termination.read();
    calls.emplace_back("termination");
  });
  readable.write();
  hungUp.closeWriter();
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(10));
  ASSERT_THAT(calls, ElementsAre("socket", "socket"));
  calls.clear();

  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  loop.perform([&] {
    calls.emplace_back("first action");
    termination.write();
  });
  loop.perform([&] { calls.emplace_back("second action"); });
  termination.write();
  const std::vector<std::string> expected = {"termination",   "first action", "termination",
                                             "second action", "timer",        "socket"};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    loop.runOnce(Seconds(10));
    ASSERT_EQ(calls.size(), i + 1);
  }
  EXPECT_EQ(calls, expected);
}

TEST(LinuxRunLoopTest, DoesOneThingPerTurnTheMostUrgentFirst) {
  // On a loop of its own, which has done nothing yet.
  std::thread(doOneThingPerTurnTheMostUrgentFirst).join();
}

/// Has every eventfd of the process count one more than there is.
void countTooMuch() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink(entry, error) == "anon_inode:[eventfd]") {
      EXPECT_EQ(eventfd_write(std::stoi(entry.path().filename()), 1), 0);
    }
  }
}

TEST(LinuxRunLoopTest, AnEmptyQueueIsNoHarmWhateverTheSystemCounts) {
  auto& loop = RunLoop::main();
  countTooMuch();
  loop.runOnce(Seconds(0.1));
  int calls = 0;
  loop.perform([&] { ++calls; });
  countTooMuch();
  loop.perform([&] { ++calls; });
  EXPECT_TRUE(test::runUntil([&] { return calls == 2; }));
  loop.runOnce(Seconds(0.1));
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace ravelin::platform
