#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "Announcements.h"
#include "OpenController.h"
#include "controller/MountedDisks.h"
#include "disk/Queue.h"
#include "intake/Server.h"

/// What one step costs where few or many disks are known or events wait. Steps are timed in
/// batches, small enough not to change the numbers, large enough not to time the clock. What a step
/// is given has just been parsed, as in the agent; which known disk it concerns is random.
namespace ravelin::bench {

namespace {

constexpr std::size_t BATCH = 8;
constexpr int BATCHES = 4000;

using Batch = std::array<DiskPtr, BATCH>;

/// Gathers the times of batches. The median is the figure: other processes disturb some batches.
class Stopwatch {
 public:
  explicit Stopwatch(benchmark::State& state) : _state(state) {}

  ~Stopwatch() {
    const auto middle = _nanoseconds.begin() + static_cast<std::ptrdiff_t>(_nanoseconds.size() / 2);
    std::nth_element(_nanoseconds.begin(), middle, _nanoseconds.end());
    _state.counters["step_ns"] = _nanoseconds.empty() ? 0.0 : *middle / double{BATCH};
  }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

  template <class Action>
  void time(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    _state.SetIterationTime(time.count());
    _nanoseconds.push_back(time.count() * 1e9);
  }

 private:
  benchmark::State& _state;
  std::vector<double> _nanoseconds;
};

/// Numbers of disks that are not known yet, and of known ones in random order: no number comes
/// again before all the others.
class Numbers {
 public:
  explicit Numbers(std::size_t known) : _known(known), _unknown(known) {
    std::iota(_known.begin(), _known.end(), std::size_t{0});
    std::shuffle(_known.begin(), _known.end(), std::minstd_rand(1));
  }
  std::size_t known() { return _known[_turn++ % _known.size()]; }
  std::size_t unknown() { return _unknown++; }

 private:
  std::vector<std::size_t> _known;
  std::size_t _turn = 0;
  std::size_t _unknown;
};

class WaitingEvents {
 public:
  explicit WaitingEvents(benchmark::State& state)
      : _count(static_cast<std::size_t>(state.range(0))), _numbers(_count) {
    for (std::size_t number = 0; number < _count; ++number) {
      queue.enqueue(announcedDisk(number));
    }
  }

  Batch unknownEvents() {
    Batch events;
    for (DiskPtr& event : events) {
      event = announcedDisk(_numbers.unknown());
    }
    return events;
  }

  /// The same texts as some that wait, as long as nothing was taken off the queue.
  Batch repeatedEvents() {
    Batch events;
    for (DiskPtr& event : events) {
      event = announcedDisk(_numbers.known());
    }
    return events;
  }

  Queue queue;

 private:
  std::size_t _count;
  Numbers _numbers;
};

void queueIntake(benchmark::State& state) {
  WaitingEvents waiting(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    Batch events = waiting.unknownEvents();
    stopwatch.time([&] {
      for (DiskPtr& event : events) {
        if (!waiting.queue.containsReceiverEqualTo(*event)) {
          waiting.queue.enqueue(std::move(event));
        }
      }
    });
    for (std::size_t taken = 0; taken < BATCH; ++taken) {
      waiting.queue.dequeue();
    }
  }
}

void queueRepeatedIntake(benchmark::State& state) {
  WaitingEvents waiting(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    const Batch events = waiting.repeatedEvents();
    stopwatch.time([&] {
      for (const DiskPtr& event : events) {
        if (!waiting.queue.containsReceiverEqualTo(*event)) {
          state.SkipWithError("a repeated event was not found");
        }
      }
    });
  }
}

void queueDequeue(benchmark::State& state) {
  WaitingEvents waiting(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    // First one more batch, so that also a short queue has enough to give.
    for (DiskPtr& event : waiting.unknownEvents()) {
      waiting.queue.enqueue(std::move(event));
    }
    Batch taken;
    stopwatch.time([&] {
      for (DiskPtr& event : taken) {
        event = waiting.queue.dequeue();
      }
    });
  }
}

class KnownDisks {
 public:
  explicit KnownDisks(benchmark::State& state)
      : _numbers(static_cast<std::size_t>(state.range(0))) {
    const auto count = static_cast<std::size_t>(state.range(0));
    for (std::size_t number = 0; number < count; ++number) {
      list.append(announcedDisk(number));
    }
  }

  std::array<Text, BATCH> knownUuids() {
    std::array<Text, BATCH> uuids;
    for (Text& uuid : uuids) {
      uuid = uuidOf(_numbers.known());
    }
    return uuids;
  }

  Batch unknownDisks() {
    Batch disks;
    for (DiskPtr& disk : disks) {
      disk = announcedDisk(_numbers.unknown());
    }
    return disks;
  }

  MountedDisks list;

 private:
  Numbers _numbers;
};

void listFind(benchmark::State& state) {
  KnownDisks known(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    const auto uuids = known.knownUuids();
    stopwatch.time([&] {
      for (const Text& uuid : uuids) {
        if (known.list.find(uuid) == nullptr) {
          state.SkipWithError("a known disk was not found");
        }
      }
    });
  }
}

void listAppend(benchmark::State& state) {
  KnownDisks known(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    const Batch disks = known.unknownDisks();
    stopwatch.time([&] {
      for (const DiskPtr& disk : disks) {
        known.list.append(disk);
      }
    });
    for (const DiskPtr& disk : disks) {
      known.list.remove(*disk);
    }
  }
}

void listRemove(benchmark::State& state) {
  KnownDisks known(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    // The controller has always just found the disk that it removes.
    Batch victims;
    std::size_t index = 0;
    for (const Text& uuid : known.knownUuids()) {
      victims[index++] = known.list.find(uuid);
    }
    stopwatch.time([&] {
      for (const DiskPtr& victim : victims) {
        known.list.remove(*victim);
      }
    });
    for (const DiskPtr& victim : victims) {
      known.list.append(victim);
    }
  }
}

/// From the datagram's text to the new date in the record: both threads' work, done on this one.
void handledStatus(benchmark::State& state) {
  const NoDesktop noDesktop;
  const auto count = static_cast<std::size_t>(state.range(0));
  OpenController controller;
  controller.mountAnnounced(count);
  Numbers numbers(count);
  Server server;
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    std::array<std::string, BATCH> announcements;
    for (std::string& announcement : announcements) {
      announcement = statusAnnouncement(numbers.known());
    }
    stopwatch.time([&] {
      for (const std::string& announcement : announcements) {
        controller.server(server, bytesOf(announcement), {});
      }
      controller._processNextDiskEvent();
    });
  }
}

void waiting(benchmark::internal::Benchmark* bench) {
  bench->Arg(10)->Arg(1000)->Arg(65000)->UseManualTime()->Iterations(BATCHES);
}
void known(benchmark::internal::Benchmark* bench) {
  bench->Arg(10)->Arg(1000)->Arg(100000)->UseManualTime()->Iterations(BATCHES);
}

BENCHMARK(queueIntake)->Name("scaling/intake")->Apply(waiting);
BENCHMARK(queueRepeatedIntake)->Name("scaling/repeated")->Apply(waiting);
BENCHMARK(queueDequeue)->Name("scaling/dequeue")->Apply(waiting);
BENCHMARK(listFind)->Name("scaling/find")->Apply(known);
BENCHMARK(listAppend)->Name("scaling/append")->Apply(known);
BENCHMARK(listRemove)->Name("scaling/remove")->Apply(known);
BENCHMARK(handledStatus)->Name("scaling/handled")->Apply(known);

}  // namespace

}  // namespace ravelin::bench
