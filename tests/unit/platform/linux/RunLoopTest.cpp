// What the run loop of Linux promises beyond the others.

#include "platform/RunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/mman.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/Pipe.h"
#include "support/Waiting.h"
#include "support/linux/ProgramMemory.h"

namespace ravelin::platform {
namespace {

using test::heldOfFiles;
using test::holdAllOfFiles;
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

TEST(LinuxRunLoopTest, GivesBackMemoryRightBeforeItWaits) {
  auto& loop = RunLoop::current();
  const std::size_t before = holdAllOfFiles();
  loop.giveBackMemoryBeforeWaiting();
  EXPECT_GE(heldOfFiles(), before);
  loop.perform([] {});
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.001));
  EXPECT_LT(heldOfFiles(), before / 2);
}

/// A page of the program.
alignas(65536) constexpr std::array<char, 65536> PAGE{'p'};

// Such as a debugger that sets breakpoints, and one in whose container's view there is none.
TEST(LinuxRunLoopTest, LeavesWhatSomebodyHasChangedInTheProgram) {
  auto& loop = RunLoop::current();
  auto* const page = const_cast<char*>(PAGE.data());
  volatile char* const written = page;
  ASSERT_EQ(::mprotect(page, PAGE.size(), PROT_READ | PROT_WRITE), 0);
  *written = 'x';
  ASSERT_EQ(::mprotect(page, PAGE.size(), PROT_READ), 0);
  loop.giveBackMemoryBeforeWaiting();
  loop.runOnce(Seconds(0.001));
  EXPECT_EQ(*written, 'x');
}

}  // namespace
}  // namespace ravelin::platform
