// What the run loop of Linux promises beyond the others.

#include "platform/RunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
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

/// How much of the program and its libraries this process holds in memory, in kB, but of what can
/// be written.
std::size_t heldOfFiles() {
  std::ifstream maps("/proc/self/smaps");
  std::size_t held = 0;
  bool counts = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::string first;
    std::string second;
    words >> first >> second;
    if (!first.ends_with(':')) {
      counts = second[1] == '-' && line.find('/') != std::string::npos;
    } else if (counts && first == "Rss:") {
      held += std::stoul(second);
    }
  }
  return held;
}

TEST(LinuxRunLoopTest, GivesBackMemoryRightBeforeItWaits) {
  auto& loop = RunLoop::current();
  const std::size_t before = heldOfFiles();
  loop.giveBackMemoryBeforeWaiting();
  EXPECT_GE(heldOfFiles(), before);
  loop.perform([] {});
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.001));
  EXPECT_LT(heldOfFiles(), before / 2);
}

/// Another process that debugs this one, as long as this exists.
class Debugger {
 public:
  Debugger() {
    // Where only its ancestors may look into a process.
    ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    const pid_t debugged = ::getpid();
    _process = ::fork();
    if (_process == 0) {
      _end.closeWriter();
      if (::ptrace(PTRACE_SEIZE, debugged, nullptr, nullptr) == 0) {
        _isThere.write();
        char none = 0;
        std::ignore = ::read(_end.reader(), &none, 1);
      }
      ::_exit(0);
    }
    _isThere.closeWriter();
    _isThere.read();
  }
  ~Debugger() {
    _end.closeWriter();
    ::waitpid(_process, nullptr, 0);
  }
  Debugger(const Debugger&) = delete;
  Debugger& operator=(const Debugger&) = delete;

 private:
  Pipe _isThere;
  Pipe _end;
  pid_t _process = 0;
};

TEST(LinuxRunLoopTest, LeavesADebuggersBreakpointsWhereTheyAre) {
  auto& loop = RunLoop::current();
  const std::size_t before = heldOfFiles();
  {
    const Debugger debugger;
    loop.giveBackMemoryBeforeWaiting();
    loop.runOnce(Seconds(0.001));
    EXPECT_GE(heldOfFiles(), before);
  }
}

}  // namespace
}  // namespace ravelin::platform
