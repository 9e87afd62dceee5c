#include "controller/LazyTimer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "platform/RunLoop.h"

namespace ravelin {
namespace {

using platform::RunLoop;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// What waits to be done; any thread.
class Work {
 public:
  void add(int number) {
    const std::lock_guard lock(_mutex);
    _waiting.push_back(number);
  }
  [[nodiscard]] bool isThere() const {
    const std::lock_guard lock(_mutex);
    return !_waiting.empty();
  }
  std::vector<int> take() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_waiting, {});
  }

 private:
  mutable std::mutex _mutex;
  std::vector<int> _waiting;
};

bool runUntil(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto end = steady_clock::now() + limit;
  while (!condition()) {
    if (steady_clock::now() > end) {
      return false;
    }
    RunLoop::current().runOnce(RunLoop::Seconds(0.2));
  }
  return true;
}

TEST(LazyTimerTest, IsNotCalledWithoutWork) {
  int calls = 0;
  std::atomic<bool> hasWork = false;
  LazyTimer timer;
  timer.start(
      RunLoop::current(), RunLoop::Seconds(0.1), [&] { ++calls; }, [&] { return hasWork.load(); });
  RunLoop::current().runOnce(RunLoop::Seconds(0.35));
  EXPECT_EQ(calls, 0);
  hasWork = true;
  timer.wake();
  EXPECT_TRUE(runUntil([&] { return calls == 3; }, std::chrono::seconds(20)));
  hasWork = false;
  EXPECT_TRUE(runUntil([&] { return calls == 4; }, std::chrono::seconds(20)));
  RunLoop::current().runOnce(RunLoop::Seconds(0.35));
  EXPECT_EQ(calls, 4);
  timer.stop();
}

TEST(LazyTimerTest, WakingWithoutWorkCostsOneCall) {
  int calls = 0;
  LazyTimer timer;
  timer.start(RunLoop::current(), RunLoop::Seconds(0.1), [&] { ++calls; }, [] { return false; });
  timer.wake();
  timer.wake();
  EXPECT_TRUE(runUntil([&] { return calls == 1; }, std::chrono::seconds(20)));
  RunLoop::current().runOnce(RunLoop::Seconds(0.35));
  EXPECT_EQ(calls, 1);
  timer.stop();
}

TEST(LazyTimerTest, SleepsAsSoonAsItsActionHasDoneTheWork) {
  int calls = 0;
  bool hasWork = true;
  LazyTimer timer;
  timer.start(
      RunLoop::current(), RunLoop::Seconds(0.1),
      [&] {
        ++calls;
        hasWork = false;
      },
      [&] { return hasWork; });
  EXPECT_TRUE(runUntil([&] { return calls == 1; }, std::chrono::seconds(20)));
  const auto end = steady_clock::now() + milliseconds(350);
  while (steady_clock::now() < end) {
    RunLoop::current().runOnce(end - steady_clock::now());
  }
  EXPECT_EQ(calls, 1);
  timer.stop();
}

TEST(LazyTimerTest, AStoppedOneIsCalledNoMore) {
  int calls = 0;
  LazyTimer timer;
  timer.start(RunLoop::current(), RunLoop::Seconds(0.1), [&] { ++calls; }, [] { return false; });
  timer.wake();
  timer.stop();
  timer.wake();
  const auto end = steady_clock::now() + milliseconds(300);
  while (steady_clock::now() < end) {
    RunLoop::current().runOnce(end - steady_clock::now());
  }
  EXPECT_EQ(calls, 0);
}

/// Work that comes on another thread at random times, done by a lazy timer and by a plain one,
/// which started at the same time.
TEST(LazyTimerTest, DoesWhatComesAtTheTimeAtWhichAPlainTimerDoesIt) {
  constexpr milliseconds INTERVAL{100};
  // So far from the timers' times comes the work, and so much later than these a call may come, for
  // it to be certain which time's call has to do it.
  constexpr milliseconds MARGIN{25};
  Work forPlain;
  Work forLazy;
  std::map<int, long> doneByPlain;
  std::map<int, long> doneByLazy;
  int lazyCalls = 0;
  const auto start = steady_clock::now();
  const auto timeNow = [&] { return (steady_clock::now() - start) / INTERVAL; };
  const auto isLate = [&] {
    return (steady_clock::now() - start) % INTERVAL > MARGIN - milliseconds(5);
  };
  const auto note = [&](std::map<int, long>& done, Work& work) {
    for (const int number : work.take()) {
      done[number] = isLate() ? -1 : static_cast<long>(timeNow());
    }
  };
  const auto plain =
      RunLoop::current().scheduleTimer(INTERVAL, [&] { note(doneByPlain, forPlain); });
  LazyTimer lazy;
  lazy.start(
      RunLoop::current(), INTERVAL,
      [&] {
        ++lazyCalls;
        note(doneByLazy, forLazy);
      },
      [&] { return forLazy.isThere(); });

  constexpr int COUNT = 60;
  std::atomic<bool> ends = false;
  std::set<int> uncertain;
  std::thread source([&] {
    std::mt19937 random(7);
    for (int number = 0; number < COUNT && !ends; ++number) {
      // Now and then several at once, now and then none for some intervals.
      const auto cell = timeNow() + static_cast<long>(random() % 4);
      const milliseconds phase = MARGIN + milliseconds(random() % 40);
      std::this_thread::sleep_until(start + cell * INTERVAL + phase);
      forPlain.add(number);
      forLazy.add(number);
      lazy.wake();
      if (steady_clock::now() > start + (cell + 1) * INTERVAL - milliseconds(5)) {
        uncertain.insert(number);
      }
    }
  });
  const auto allAreDone = [&] { return doneByPlain.size() == COUNT && doneByLazy.size() == COUNT; };
  EXPECT_TRUE(runUntil(allAreDone, std::chrono::seconds(100)));
  ends = true;
  source.join();
  const auto calls = static_cast<long>(timeNow());
  lazy.stop();
  int compared = 0;
  for (const auto& [number, time] : doneByPlain) {
    if (time >= 0 && doneByLazy[number] >= 0 && !uncertain.contains(number)) {
      EXPECT_EQ(doneByLazy[number], time) << number;
      ++compared;
    }
  }
  EXPECT_GE(compared, COUNT / 4);
  EXPECT_LT(lazyCalls, calls);
}

}  // namespace
}  // namespace ravelin
