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
#include "NoDesktop.h"
#include "controller/Admission.h"
#include "controller/MountedDisks.h"
#include "disk/Queue.h"
#include "intake/EventParser.h"
#include "intake/Server.h"
#include "support/OpenController.h"

/// What one step costs where few or many disks are known or events wait. Steps are timed in
/// batches, small enough not to change the numbers, large enough not to time the clock. What a step
/// is given has just been parsed, as in the agent. Known disks come in the order in which they were
/// mounted, which is how devices repeat their announcements, or at random, which is the worst order
/// for the processor's cache.
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

enum Order : std::int64_t { IN_ORDER, AT_RANDOM };

/// Numbers of disks that are not known yet, and of known ones: none of these comes again before all
/// the others. A bench is given the number of known disks and their order.
class Numbers {
 public:
  explicit Numbers(const benchmark::State& state)
      : count(static_cast<std::size_t>(state.range(0))), _known(count), _unknown(count) {
    std::iota(_known.begin(), _known.end(), std::size_t{0});
    if (state.range(1) == AT_RANDOM) {
      std::shuffle(_known.begin(), _known.end(), std::minstd_rand(1));
    }
  }
  std::size_t known() { return _known[_turn++ % _known.size()]; }
  std::size_t unknown() { return _unknown++; }

  const std::size_t count;

 private:
  std::vector<std::size_t> _known;
  std::size_t _turn = 0;
  std::size_t _unknown;
};

class WaitingEvents {
 public:
  explicit WaitingEvents(const benchmark::State& state) : _numbers(state) {
    for (std::size_t number = 0; number < _numbers.count; ++number) {
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

  /// The texts of some that wait, as long as nothing was taken off the queue.
  std::array<std::string, BATCH> repeatedAnnouncements() {
    std::array<std::string, BATCH> announcements;
    for (std::string& announcement : announcements) {
      announcement = statusAnnouncement(_numbers.known());
    }
    return announcements;
  }

  Queue queue;

 private:
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

/// Parsing is part of it: without that it is little more than waiting for memory.
void queueRepeatedIntake(benchmark::State& state) {
  WaitingEvents waiting(state);
  Stopwatch stopwatch(state);
  for ([[maybe_unused]] const auto turn : state) {
    const auto announcements = waiting.repeatedAnnouncements();
    stopwatch.time([&] {
      for (const std::string& announcement : announcements) {
        const DiskPtr event = EventParser::parse(bytesOf(announcement));
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
  explicit KnownDisks(const benchmark::State& state) : _numbers(state) {
    for (std::size_t number = 0; number < _numbers.count; ++number) {
      list.append(announcedDisk(number));
    }
  }

  Batch knownDisks() {
    Batch events;
    for (DiskPtr& event : events) {
      event = announcedDisk(_numbers.known());
    }
    return events;
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
    const Batch events = known.knownDisks();
    stopwatch.time([&] {
      for (const DiskPtr& event : events) {
        if (known.list.find(*event) == nullptr) {
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
    for (const DiskPtr& event : known.knownDisks()) {
      victims[index++] = known.list.find(*event);
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
  Numbers numbers(state);
  test::OpenController controller;
  mountAnnounced(controller, numbers.count);
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

void sizes(benchmark::internal::Benchmark* bench, std::int64_t largest) {
  bench->Args({10, IN_ORDER})->Args({1000, IN_ORDER})->Args({largest, IN_ORDER});
  bench->UseManualTime()->Iterations(BATCHES);
}
/// As many as are ever let in.
constexpr auto WAITING = static_cast<std::int64_t>(Admission::WAITING_EVENTS);
constexpr auto KNOWN = static_cast<std::int64_t>(Admission::KNOWN_DISKS);
void waiting(benchmark::internal::Benchmark* bench) { sizes(bench, WAITING); }
void known(benchmark::internal::Benchmark* bench) { sizes(bench, KNOWN); }
void waitingInAnyOrder(benchmark::internal::Benchmark* bench) {
  waiting(bench->Args({WAITING, AT_RANDOM}));
}
void knownInAnyOrder(benchmark::internal::Benchmark* bench) {
  known(bench->Args({KNOWN, AT_RANDOM}));
}

BENCHMARK(queueIntake)->Name("scaling/intake")->Apply(waiting);
BENCHMARK(queueRepeatedIntake)->Name("scaling/repeated")->Apply(waitingInAnyOrder);
BENCHMARK(queueDequeue)->Name("scaling/dequeue")->Apply(waiting);
BENCHMARK(listFind)->Name("scaling/find")->Apply(knownInAnyOrder);
BENCHMARK(listAppend)->Name("scaling/append")->Apply(known);
BENCHMARK(listRemove)->Name("scaling/remove")->Apply(knownInAnyOrder);
BENCHMARK(handledStatus)->Name("scaling/handled")->Apply(knownInAnyOrder);

}  // namespace

}  // namespace ravelin::bench
