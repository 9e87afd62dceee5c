#include "platform/RunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Pipe.h"

namespace ravelin::platform {
namespace {

using std::chrono::steady_clock;
using test::Pipe;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using Seconds = RunLoop::Seconds;

/// Runs the loop until the condition holds; false when it still does not after 20 seconds.
bool runUntil(RunLoop& loop, const std::function<bool()>& condition) {
  const auto end = steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (steady_clock::now() > end) {
      return false;
    }
    loop.runOnce(Seconds(1));
  }
  return true;
}

Seconds threadTime() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// A thread that runs its own loop until this is destroyed.
class LoopThread {
 public:
  LoopThread() {
    std::atomic<RunLoop*> loop = nullptr;
    _thread = std::thread([this, &loop] {
      RunLoop& own = RunLoop::current();
      loop.store(&own);
      loop.notify_one();
      while (!_stopped) {
        own.runOnce(RunLoop::DISTANT_FUTURE);
      }
    });
    loop.wait(nullptr);
    _loop = loop.load();
  }
  ~LoopThread() {
    _loop->performAndWait([this] { _stopped = true; });
    _thread.join();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  [[nodiscard]] RunLoop& loop() const { return *_loop; }

 private:
  RunLoop* _loop = nullptr;
  bool _stopped = false;
  std::thread _thread;
};

TEST(RunLoopTest, TheMainThreadHasTheMainLoop) {
  EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
  EXPECT_TRUE(RunLoop::main().isCurrent());
}

TEST(RunLoopTest, EveryOtherThreadHasALoopOfItsOwn) {
  const LoopThread first;
  const LoopThread second;
  EXPECT_NE(&first.loop(), &second.loop());
  EXPECT_NE(&first.loop(), &RunLoop::main());
  EXPECT_FALSE(first.loop().isCurrent());
  first.loop().performAndWait([&] {
    EXPECT_EQ(&RunLoop::current(), &first.loop());
    EXPECT_TRUE(first.loop().isCurrent());
    EXPECT_FALSE(second.loop().isCurrent());
    EXPECT_FALSE(RunLoop::main().isCurrent());
  });
}

TEST(RunLoopTest, OtherThreadsMayBeTheFirstToUseTheMainLoop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::atomic<int> calls = 0;
        std::atomic<int> wrong = 0;
        std::vector<std::thread> threads;
        threads.reserve(8);
        for (int i = 0; i < 8; ++i) {
          threads.emplace_back([&] {
            wrong += RunLoop::main().isCurrent() ? 1 : 0;
            RunLoop::main().performAndWait([&] {
              wrong += RunLoop::main().isCurrent() ? 0 : 1;
              ++calls;
            });
          });
        }
        // Long enough for one of them to make the loop before this thread asks for it.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const bool allCalled = runUntil(RunLoop::main(), [&] { return calls == 8; });
        for (auto& thread : threads) {
          thread.join();
        }
        _exit(allCalled && wrong == 0 ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST(RunLoopTest, WaitsNoLongerThanTheLimit) {
  auto& loop = RunLoop::current();
  const auto start = steady_clock::now();
  loop.runOnce(Seconds(0.3));
  EXPECT_GE(steady_clock::now() - start, Seconds(0.3));
  loop.runOnce(Seconds(0));
  loop.runOnce(Seconds(-1));
  loop.runOnce(Seconds(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_LT(steady_clock::now() - start, Seconds(20));
}

TEST(RunLoopTest, SleepsWhileThereIsNothingToDo) {
  auto& loop = RunLoop::current();
  int calls = 0;
  const auto timer = loop.scheduleTimer(Seconds(3600), [&] { ++calls; });
  const Pipe pipe;
  const auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
  const Seconds busyBefore = threadTime();
  loop.runOnce(Seconds(1));
  EXPECT_LT(threadTime() - busyBefore, Seconds(0.5));
  EXPECT_EQ(calls, 0);
}

TEST(RunLoopTest, AnInterruptedWaitGoesOn) {
  struct sigaction ignoring = {};
  ignoring.sa_handler = [](int) {};  // without SA_RESTART: the wait is interrupted
  struct sigaction previous = {};
  ASSERT_EQ(sigaction(SIGUSR1, &ignoring, &previous), 0);
  auto& loop = RunLoop::current();
  const Pipe pipe;
  int calls = 0;
  const auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] {
    pipe.read();
    ++calls;
  });

  const auto disturb = [waiting = pthread_self()] {
    for (int i = 0; i < 10; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      pthread_kill(waiting, SIGUSR1);
    }
  };
  const auto start = steady_clock::now();
  std::thread disturber(disturb);
  loop.runOnce(Seconds(0.5));
  EXPECT_GE(steady_clock::now() - start, Seconds(0.5));
  EXPECT_EQ(calls, 0);
  disturber.join();

  disturber = std::thread([&] {
    disturb();
    pipe.write();
  });
  loop.runOnce(RunLoop::DISTANT_FUTURE);
  EXPECT_EQ(calls, 1);
  disturber.join();
  sigaction(SIGUSR1, &previous, nullptr);
}

TEST(RunLoopTest, TimerRepeatsOncePerInterval) {
  auto& loop = RunLoop::current();
  const auto start = steady_clock::now();
  std::vector<steady_clock::duration> times;
  const auto timer =
      loop.scheduleTimer(Seconds(0.2), [&] { times.push_back(steady_clock::now() - start); });
  ASSERT_TRUE(runUntil(loop, [&] { return times.size() == 3; }));
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_GE(times[i], Seconds(0.2) * (static_cast<double>(i) + 1));
  }
}

TEST(RunLoopTest, TimerIsPunctualEnoughToKeepItsPace) {
  auto& loop = RunLoop::current();
  int calls = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++calls; });
  const auto end = steady_clock::now() + std::chrono::seconds(3);
  while (steady_clock::now() < end) {
    loop.runOnce(end - steady_clock::now());
  }
  EXPECT_GE(calls, 15);  // 30 at best; one that comes an interval too late is skipped
}

class RunLoopSmallestIntervalTest : public testing::TestWithParam<double> {};

TEST_P(RunLoopSmallestIntervalTest, TakesThePlaceOfALesserOne) {
  auto& loop = RunLoop::current();
  const auto start = steady_clock::now();
  int calls = 0;
  const auto timer = loop.scheduleTimer(Seconds(GetParam()), [&] { ++calls; });
  ASSERT_TRUE(runUntil(loop, [&] { return calls == 3; }));
  EXPECT_GE(steady_clock::now() - start, 3 * RunLoop::SMALLEST_INTERVAL);
}

INSTANTIATE_TEST_SUITE_P(Intervals, RunLoopSmallestIntervalTest,
                         testing::Values(0.0, -0.0, RunLoop::SMALLEST_INTERVAL.count() / 2, 1e-300,
                                         -1.0, -1e300, std::numeric_limits<double>::quiet_NaN(),
                                         -std::numeric_limits<double>::infinity()));

TEST(RunLoopTest, AnEndlessIntervalNeverPasses) {
  auto& loop = RunLoop::current();
  int calls = 0;
  std::vector<std::unique_ptr<RunLoop::Timer>> timers;
  for (const double interval : {1e9, 1e13, 1e19, 1e300, std::numeric_limits<double>::infinity()}) {
    timers.push_back(loop.scheduleTimer(Seconds(interval), [&] { ++calls; }));
  }
  loop.runOnce(Seconds(0.3));
  EXPECT_EQ(calls, 0);
}

TEST(RunLoopTest, ABusyLoopSkipsWhatItsTimerMissed) {
  auto& loop = RunLoop::current();
  const auto start = steady_clock::now();
  std::vector<steady_clock::duration> times;
  const auto timer = loop.scheduleTimer(Seconds(0.2), [&] {
    times.push_back(steady_clock::now() - start);
    if (times.size() == 1) {
      std::this_thread::sleep_until(start + std::chrono::milliseconds(900));
    }
  });
  ASSERT_TRUE(runUntil(loop, [&] { return times.size() == 3; }));
  EXPECT_GE(times[1], Seconds(1.0));
  EXPECT_GE(times[2], Seconds(1.2));
}

TEST(RunLoopTest, ABusyTimerStaysInStepWithItsStart) {
  auto& loop = RunLoop::current();
  std::vector<std::string> order;
  const auto start = steady_clock::now();
  const auto busy = loop.scheduleTimer(Seconds(1.0), [&] {
    order.emplace_back("busy");
    std::this_thread::sleep_until(start + std::chrono::milliseconds(1500));
  });
  // The busy one is due again after 2 s; if it were out of step, not before 2.5 s.
  const auto other = loop.scheduleTimer(Seconds(2.4), [&] { order.emplace_back("other"); });
  ASSERT_TRUE(runUntil(loop, [&] { return order.size() == 3; }));
  EXPECT_THAT(order, ElementsAre("busy", "busy", "other"));
}

TEST(RunLoopTest, ATimerThatIsAlwaysBusyLeavesTurnsForTheRest) {
  auto& loop = RunLoop::current();
  const Pipe pipe;
  pipe.write();
  int served = 0;
  const auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++served; });
  int calls = 0;
  int servedBetween = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] {
    servedBetween += std::exchange(served, 0) > 0 ? 1 : 0;
    ++calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
  });
  ASSERT_TRUE(runUntil(loop, [&] { return calls == 6; }));
  EXPECT_GE(servedBetween, 2);  // not only before the first call
}

TEST(RunLoopTest, ADestroyedTimerStops) {
  auto& loop = RunLoop::current();
  int calls = 0;
  auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++calls; });
  ASSERT_TRUE(runUntil(loop, [&] { return calls == 1; }));
  timer.reset();
  loop.runOnce(Seconds(0.3));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, ATimerDueButDestroyedStaysSilent) {
  auto& loop = RunLoop::current();
  int calls = 0;
  std::unique_ptr<RunLoop::Timer> first;
  std::unique_ptr<RunLoop::Timer> second;
  const auto stopBoth = [&] {
    ++calls;
    first.reset();
    second.reset();
  };
  first = loop.scheduleTimer(Seconds(0.1), stopBoth);
  second = loop.scheduleTimer(Seconds(0.1), stopBoth);
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  loop.runOnce(Seconds(1));
  loop.runOnce(Seconds(0.3));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, ATimerMayDestroyOrReplaceItselfInItsAction) {
  auto& loop = RunLoop::current();
  std::unique_ptr<RunLoop::Timer> timer;
  std::vector<std::string> calls;
  // Longer than what a string or function keeps in itself, so that a use after it is freed shows.
  const std::string text = "a text that lives on the heap, as long as the action does";
  timer = loop.scheduleTimer(Seconds(0.1), [&, text] {
    timer = loop.scheduleTimer(Seconds(0.1), [&, text] {
      timer.reset();
      calls.push_back("second " + text);
    });
    calls.push_back("first " + text);
  });
  ASSERT_TRUE(runUntil(loop, [&] { return calls.size() == 2; }));
  loop.runOnce(Seconds(0.3));
  EXPECT_THAT(calls, ElementsAre("first " + text, "second " + text));
}

TEST(RunLoopTest, ASuspendedTimerIsNotCalledUntilItIsResumed) {
  auto& loop = RunLoop::current();
  int calls = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++calls; });
  timer->suspend();
  timer->suspend();
  loop.runOnce(Seconds(0.35));
  EXPECT_EQ(calls, 0);
  timer->resume(steady_clock::now());
  timer->resume(steady_clock::now());
  EXPECT_TRUE(runUntil(loop, [&] { return calls == 2; }));
}

TEST(RunLoopTest, ATimerThatIsDueButSuspendedStaysSilent) {
  auto& loop = RunLoop::current();
  int calls = 0;
  std::unique_ptr<RunLoop::Timer> first;
  std::unique_ptr<RunLoop::Timer> second;
  const auto suspendBoth = [&] {
    ++calls;
    first->suspend();
    second->suspend();
  };
  first = loop.scheduleTimer(Seconds(0.1), suspendBoth);
  second = loop.scheduleTimer(Seconds(0.1), suspendBoth);
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  loop.runOnce(Seconds(1));
  loop.runOnce(Seconds(0.3));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, AResumedTimerIsInStepWithItsStart) {
  auto& loop = RunLoop::current();
  std::vector<std::string> order;
  const auto start = steady_clock::now();
  const auto timer = loop.scheduleTimer(Seconds(1.0), [&] { order.emplace_back("timer"); });
  timer->suspend();
  // It is due again after 2 s; if it were out of step, not before 2.5 s.
  const auto other = loop.scheduleTimer(Seconds(2.4), [&] { order.emplace_back("other"); });
  std::this_thread::sleep_until(start + std::chrono::milliseconds(1500));
  timer->resume(steady_clock::now());
  ASSERT_TRUE(runUntil(loop, [&] { return order.size() == 2; }));
  EXPECT_THAT(order, ElementsAre("timer", "other"));
  EXPECT_GE(steady_clock::now() - start, Seconds(2.4));
}

TEST(RunLoopTest, WhatWasDueSinceTheMomentOfTheResumptionIsCalledOnceAndAtOnce) {
  auto& loop = RunLoop::current();
  int calls = 0;
  const auto start = steady_clock::now();
  std::unique_ptr<RunLoop::Timer> timer = loop.scheduleTimer(Seconds(0.2), [&] {
    ++calls;
    timer->suspend();
  });
  timer->suspend();
  std::this_thread::sleep_until(start + std::chrono::milliseconds(900));
  timer->resume(start + std::chrono::milliseconds(300));
  loop.runOnce(Seconds(0));
  EXPECT_EQ(calls, 1);
  loop.runOnce(Seconds(0.3));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, WhatWasDueBeforeTheMomentOfTheResumptionIsSkipped) {
  auto& loop = RunLoop::current();
  int calls = 0;
  const auto start = steady_clock::now();
  const auto timer = loop.scheduleTimer(Seconds(1.0), [&] { ++calls; });
  timer->suspend();
  std::this_thread::sleep_until(start + std::chrono::milliseconds(1050));
  timer->resume(steady_clock::now());
  loop.runOnce(Seconds(0));
  if (steady_clock::now() < start + std::chrono::seconds(2)) {
    EXPECT_EQ(calls, 0);
  }
  EXPECT_TRUE(runUntil(loop, [&] { return calls == 1; }));
  EXPECT_GE(steady_clock::now() - start, Seconds(2.0));
}

TEST(RunLoopTest, ATimerMaySuspendAndResumeItselfInItsAction) {
  auto& loop = RunLoop::current();
  const auto start = steady_clock::now();
  std::vector<steady_clock::duration> times;
  std::unique_ptr<RunLoop::Timer> timer = loop.scheduleTimer(Seconds(0.2), [&] {
    times.push_back(steady_clock::now() - start);
    timer->suspend();
    timer->resume(steady_clock::now());
  });
  ASSERT_TRUE(runUntil(loop, [&] { return times.size() == 3; }));
  EXPECT_GE(times[1], Seconds(0.4));
  EXPECT_GE(times[2], Seconds(0.6));
}

TEST(RunLoopTest, WatchCallsUntilTheDescriptorIsRead) {
  auto& loop = RunLoop::current();
  const Pipe pipe;
  int calls = 0;
  const auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] {
    if (++calls == 3) {
      pipe.read();
    }
  });
  ASSERT_NE(watch, nullptr);
  loop.runOnce(Seconds(0.1));
  EXPECT_EQ(calls, 0);
  pipe.write();
  for (int i = 0; i < 3; ++i) {
    loop.runOnce(Seconds(10));
    EXPECT_EQ(calls, i + 1);
  }
  loop.runOnce(Seconds(0.1));
  EXPECT_EQ(calls, 3);
}

TEST(RunLoopTest, WatchReportsTheEndOfAPipe) {
  auto& loop = RunLoop::current();
  Pipe pipe;
  int calls = 0;
  const auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
  pipe.closeWriter();
  loop.runOnce(Seconds(10));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, WatchReportsAnErrorOfASocket) {
  const auto udpSocket = [] { return socket(AF_INET, SOCK_DGRAM, 0); };
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const int closed = udpSocket();
  ASSERT_EQ(bind(closed, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(getsockname(closed, reinterpret_cast<sockaddr*>(&address), &length), 0);
  close(closed);

  const int descriptor = udpSocket();
  ASSERT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(send(descriptor, "x", 1, 0), 1);
  int error = 0;
  const auto watch = RunLoop::current().watchReadable(descriptor, RunLoop::Urgency::socket, [&] {
    socklen_t size = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
  });
  RunLoop::current().runOnce(Seconds(10));
  EXPECT_EQ(error, ECONNREFUSED);
  close(descriptor);
}

TEST(RunLoopTest, WatchIsRefusedForWhatCannotBeWatched) {
  auto& loop = RunLoop::current();
  EXPECT_EQ(loop.watchReadable(-1, RunLoop::Urgency::socket, [] {}), nullptr);
  int closed = -1;
  {
    const Pipe pipe;
    closed = pipe.reader();
  }
  EXPECT_EQ(loop.watchReadable(closed, RunLoop::Urgency::socket, [] {}), nullptr);
  loop.runOnce(Seconds(0));
}

TEST(RunLoopTest, ADestroyedWatchStopsAndLeavesTheDescriptorOpen) {
  auto& loop = RunLoop::current();
  const Pipe pipe;
  pipe.write();
  int calls = 0;
  auto watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
  watch.reset();
  loop.runOnce(Seconds(0.1));
  EXPECT_EQ(calls, 0);
  pipe.read();

  const auto again = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] { ++calls; });
  pipe.write();
  loop.runOnce(Seconds(10));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, AWatchMayDestroyItselfInItsAction) {
  auto& loop = RunLoop::current();
  const Pipe pipe;
  pipe.write();
  std::vector<std::string> calls;
  std::unique_ptr<RunLoop::Watch> watch;
  const std::string text = "a text that lives on the heap, as long as the action does";
  watch = loop.watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&, text] {
    watch.reset();
    calls.push_back(text);
  });
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(calls, ElementsAre(text));
}

TEST(RunLoopTest, OneWatchMayDestroyAnotherThatIsReady) {
  auto& loop = RunLoop::current();
  const Pipe first;
  const Pipe second;
  first.write();
  second.write();
  int calls = 0;
  std::vector<std::unique_ptr<RunLoop::Watch>> watches;
  const auto action = [&] {
    ++calls;
    watches.clear();
  };
  watches.push_back(loop.watchReadable(first.reader(), RunLoop::Urgency::socket, action));
  watches.push_back(loop.watchReadable(second.reader(), RunLoop::Urgency::socket, action));
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.1));
  EXPECT_EQ(calls, 1);
}

TEST(RunLoopTest, WatchesThatAreAlwaysReadyTakeTurns) {
  auto& loop = RunLoop::current();
  const Pipe first;
  Pipe second;
  first.write();
  second.closeWriter();
  int firstCalls = 0;
  int secondCalls = 0;
  const auto a =
      loop.watchReadable(first.reader(), RunLoop::Urgency::socket, [&] { ++firstCalls; });
  const auto b =
      loop.watchReadable(second.reader(), RunLoop::Urgency::socket, [&] { ++secondCalls; });
  for (int i = 0; i < 100; ++i) {
    loop.runOnce(Seconds(10));
  }
  EXPECT_EQ(firstCalls + secondCalls, 100);
  EXPECT_GE(firstCalls, 40);
  EXPECT_GE(secondCalls, 40);
}

TEST(RunLoopTest, AnAlwaysReadableDescriptorDelaysNothingElse) {
  auto& loop = RunLoop::current();
  const Pipe readable;
  readable.write();
  const auto watch = loop.watchReadable(readable.reader(), RunLoop::Urgency::socket, [] {});
  int ticks = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++ticks; });
  std::atomic<int> handovers = 0;
  std::thread other([&] {
    for (int i = 0; i < 100; ++i) {
      loop.performAndWait([&] { ++handovers; });
    }
  });
  EXPECT_TRUE(runUntil(loop, [&] { return ticks >= 3 && handovers == 100; }));
  other.join();
}

TEST(RunLoopTest, DoesOneThingPerTurnAndTerminationFirst) {
  auto& loop = RunLoop::current();
  std::vector<std::string> calls;
  const Pipe readable;
  const Pipe termination;
  const auto socket = loop.watchReadable(readable.reader(), RunLoop::Urgency::socket, [&] {
    readable.read();
    calls.emplace_back("socket");
  });
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { calls.emplace_back("timer"); });
  const auto urgent = loop.watchReadable(termination.reader(), RunLoop::Urgency::termination, [&] {
    termination.read();
    calls.emplace_back("termination");
  });
  readable.write();
  loop.perform([&] {
    calls.emplace_back("action");
    termination.write();
  });
  termination.write();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  for (std::size_t turn = 1; turn <= 5; ++turn) {
    loop.runOnce(Seconds(10));
    ASSERT_EQ(calls.size(), turn);
  }
  EXPECT_EQ(calls.front(), "termination");
  EXPECT_EQ(*std::next(std::ranges::find(calls, "action")), "termination");
  EXPECT_THAT(calls,
              UnorderedElementsAre("termination", "termination", "action", "timer", "socket"));
}

/// Counts how often a timer, a descriptor that is always readable and work that another thread
/// hands over, one after the other, have been called.
class Others {
 public:
  explicit Others(RunLoop& loop)
      : _timer(loop.scheduleTimer(Seconds(0.1), [this] { ++_ticks; })),
        _watch(loop.watchReadable(_pipe.reader(), RunLoop::Urgency::socket, [this] { ++_reads; })),
        _thread([this, &loop] {
          while (!_areDone) {
            loop.performAndWait([this] { ++_handovers; });
          }
          loop.performAndWait([this] { _hasEnded = true; });
        }) {
    _pipe.write();
  }

  /// Counts from here on.
  void restart() { _ticks = _reads = _handovers = 0; }

  /// Whether each of them has been called some times.
  [[nodiscard]] bool haveBeenCalled() const {
    return _ticks >= 3 && _reads >= 3 && _handovers >= 3;
  }

  void end(RunLoop& loop) {
    _areDone = true;
    EXPECT_TRUE(runUntil(loop, [this] { return _hasEnded; }));
    _thread.join();
  }

 private:
  int _ticks = 0;
  int _reads = 0;
  int _handovers = 0;
  bool _hasEnded = false;
  std::atomic<bool> _areDone = false;
  Pipe _pipe;
  std::unique_ptr<RunLoop::Timer> _timer;
  std::unique_ptr<RunLoop::Watch> _watch;
  std::thread _thread;
};

TEST(RunLoopTest, AStreamOfWorkHandedOverStarvesNothing) {
  auto& loop = RunLoop::current();
  Others others(loop);
  bool isOver = false;
  int waiting = 2;  // so that there is always one
  std::function<void()> again = [&] {
    if (isOver) {
      --waiting;
    } else {
      loop.perform(again);
    }
  };
  loop.perform(again);
  loop.perform(again);
  EXPECT_TRUE(runUntil(loop, [&] { return others.haveBeenCalled(); }));
  isOver = true;
  EXPECT_TRUE(runUntil(loop, [&] { return waiting == 0; }));
  others.end(loop);
}

TEST(RunLoopTest, TimersThatAreAlwaysDueStarveNothing) {
  auto& loop = RunLoop::current();
  Others others(loop);
  // Each is done within its interval; only all of them together are not.
  std::vector<std::unique_ptr<RunLoop::Timer>> timers;
  timers.reserve(8);
  int calls = 0;
  for (int number = 0; number < 8; ++number) {
    timers.push_back(loop.scheduleTimer(Seconds(0.1), [&] {
      ++calls;
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }));
  }
  ASSERT_TRUE(runUntil(loop, [&] { return calls >= 16; }));
  others.restart();
  EXPECT_TRUE(runUntil(loop, [&] { return others.haveBeenCalled(); }));
  timers.clear();
  others.end(loop);
}

TEST(RunLoopTest, WhateverIsReadyTerminationIsNext) {
  auto& loop = RunLoop::current();
  Others others(loop);
  const Pipe termination;
  int calls = 0;
  const auto urgent = loop.watchReadable(termination.reader(), RunLoop::Urgency::termination, [&] {
    termination.read();
    ++calls;
  });
  for (int expected = 1; expected <= 100; ++expected) {
    for (int turn = 0; turn < expected % 7; ++turn) {
      loop.runOnce(Seconds(10));
    }
    termination.write();
    loop.runOnce(Seconds(10));
    ASSERT_EQ(calls, expected);
  }
  others.end(loop);
}

TEST(RunLoopTest, PerformIsAlwaysLaterAndInOrder) {
  auto& loop = RunLoop::current();
  std::vector<int> calls;
  loop.perform([&] {
    calls.push_back(1);
    loop.perform([&] { calls.push_back(3); });
    calls.push_back(2);
  });
  EXPECT_THAT(calls, ElementsAre());
  loop.runOnce(Seconds(10));
  EXPECT_THAT(calls, ElementsAre(1, 2));
  loop.runOnce(Seconds(10));
  EXPECT_THAT(calls, ElementsAre(1, 2, 3));
}

TEST(RunLoopTest, PerformedBeforeTheLoopRunsIsNotLost) {
  auto& loop = RunLoop::current();
  int calls = 0;
  std::thread([&] {
    for (int i = 0; i < 1000; ++i) {
      loop.perform([&] { ++calls; });
    }
  }).join();
  EXPECT_EQ(calls, 0);
  for (int i = 0; i < 1000; ++i) {
    loop.runOnce(Seconds(10));
  }
  EXPECT_EQ(calls, 1000);
}

TEST(RunLoopTest, PerformWakesASleepingLoop) {
  auto& loop = RunLoop::current();
  bool called = false;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    loop.perform([&] { called = true; });
  });
  loop.runOnce(RunLoop::DISTANT_FUTURE);
  EXPECT_TRUE(called);
  other.join();
}

TEST(RunLoopTest, PerformAndWaitOnTheOwnThreadIsADirectCall) {
  auto& loop = RunLoop::current();
  std::vector<int> calls;
  loop.perform([&] { calls.push_back(2); });
  loop.performAndWait([&] { calls.push_back(1); });
  EXPECT_THAT(calls, ElementsAre(1));
  loop.runOnce(Seconds(10));
  EXPECT_THAT(calls, ElementsAre(1, 2));
}

TEST(RunLoopTest, PerformAndWaitReturnsWhenTheActionHasFinished) {
  const LoopThread thread;
  int result = 0;  // not atomic: the wait alone must make it visible
  for (int i = 1; i <= 1000; ++i) {
    thread.loop().performAndWait([&] {
      EXPECT_TRUE(thread.loop().isCurrent());
      result = i;
    });
    ASSERT_EQ(result, i);
  }
  thread.loop().performAndWait([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    result = -1;
  });
  EXPECT_EQ(result, -1);
}

TEST(RunLoopTest, AnActionMayEndTheLoopWhileItsCallerStillHandsItOver) {
  for (int i = 0; i < 200; ++i) {
    const LoopThread thread;
    // Keeps the loop awake, so that it finds the ending action as soon as that is there.
    for (int k = 0; k < 5; ++k) {
      thread.loop().perform([] {});
    }
  }
}

TEST(RunLoopTest, ManyThreadsHandOverEachInItsOwnOrder) {
  constexpr std::size_t THREADS = 8;
  constexpr int ACTIONS = 300;
  auto& loop = RunLoop::current();
  std::array<std::vector<int>, THREADS> received;
  std::size_t finished = 0;
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (std::size_t t = 0; t < THREADS; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < ACTIONS; ++i) {
        const auto action = [&, t, i] { received.at(t).push_back(i); };
        if (i % 3 == 0) {
          loop.performAndWait(action);
        } else {
          loop.perform(action);
        }
      }
      loop.performAndWait([&] { ++finished; });
    });
  }
  EXPECT_TRUE(runUntil(loop, [&] { return finished == THREADS; }));
  for (auto& thread : threads) {
    thread.join();
  }
  std::vector<int> expected(ACTIONS);
  std::iota(expected.begin(), expected.end(), 0);
  for (const auto& values : received) {
    EXPECT_EQ(values, expected);
  }
}

TEST(RunLoopTest, TwoLoopsHandWorkToEachOther) {
  auto& loop = RunLoop::current();
  const LoopThread thread;
  int rounds = 0;
  thread.loop().perform([&] {
    for (int i = 0; i < 100; ++i) {
      loop.performAndWait([&] { ++rounds; });
    }
  });
  EXPECT_TRUE(runUntil(loop, [&] { return rounds == 100; }));
}

TEST(RunLoopTest, AThreadServesItsOwnTimersAndDescriptors) {
  auto& loop = RunLoop::current();
  const LoopThread thread;
  const Pipe pipe;
  bool ticked = false;
  bool read = false;
  std::unique_ptr<RunLoop::Timer> timer;
  std::unique_ptr<RunLoop::Watch> watch;
  thread.loop().performAndWait([&] {
    timer = thread.loop().scheduleTimer(Seconds(0.1), [&] {
      timer.reset();
      pipe.write();
      loop.perform([&] { ticked = true; });
    });
    watch = thread.loop().watchReadable(pipe.reader(), RunLoop::Urgency::socket, [&] {
      watch.reset();
      loop.perform([&] { read = true; });
    });
  });
  EXPECT_TRUE(runUntil(loop, [&] { return ticked && read; }));
}

TEST(RunLoopDeathTest, BelongsToItsThread) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(std::thread([] { RunLoop::main().runOnce(Seconds(0)); }).join(), "RunLoop::runOnce");
  EXPECT_DEATH(std::thread([] {
                 const auto timer = RunLoop::main().scheduleTimer(Seconds(1), [] {});
               }).join(),
               "RunLoop::scheduleTimer");
}

TEST(RunLoopDeathTest, DoesNotRunInsideItsOwnActions) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        RunLoop::main().perform([] { RunLoop::main().runOnce(Seconds(0)); });
        RunLoop::main().runOnce(Seconds(10));
      },
      "RunLoop::runOnce");
}

}  // namespace
}  // namespace ravelin::platform
