#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Announcements.h"
#include "platform/RunLoop.h"
#include "support/OpenController.h"
#include "support/TemporaryHome.h"

namespace ravelin::bench {

namespace {

using platform::RunLoop;
using test::OpenController;

/// What something has taken so far, in seconds.
struct Cost {
  double time = 0;
  double processorTime = 0;  ///< of all threads

  static Cost now() {
    std::timespec worked{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &worked);
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return {.time = std::chrono::duration<double>(time).count(),
            .processorTime =
                static_cast<double>(worked.tv_sec) + static_cast<double>(worked.tv_nsec) * 1e-9};
  }

  void addSince(const Cost& start) {
    const Cost end = now();
    time += end.time - start.time;
    processorTime += end.processorTime - start.processorTime;
  }
};

std::vector<DiskPtr> disksOf(benchmark::State& state) {
  std::vector<DiskPtr> disks;
  const auto count = static_cast<std::size_t>(state.range(0));
  disks.reserve(count);
  for (std::size_t number = 0; number < count; ++number) {
    disks.push_back(announcedDisk(number));
  }
  return disks;
}

std::size_t entriesIn(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

enum Thread : std::int64_t { HANDLER_THREAD, MAIN_THREAD };

/// Acts on every disk and adds what all took. On the main thread nothing needs to be handed over;
/// on a handler thread the scripts are, to this thread.
void timeAll(Cost& cost, const std::vector<DiskPtr>& disks, std::int64_t thread,
             const std::function<void(const DiskPtr&)>& act) {
  const Cost start = Cost::now();
  const auto actOnAll = [&] {
    for (const DiskPtr& disk : disks) {
      act(disk);
    }
  };
  if (thread == MAIN_THREAD) {
    actOnAll();
  } else {
    bool isDone = false;
    std::thread handler([&] {
      actOnAll();
      RunLoop::main().perform([&] { isDone = true; });
    });
    while (!isDone) {
      RunLoop::current().runOnce(RunLoop::DISTANT_FUTURE);
    }
    handler.join();
  }
  cost.addSince(start);
}

/// What one file takes, from what all of them took, once for each turn. Other processes add to the
/// time, hardly to the processor time.
void report(benchmark::State& state, const Cost& making, const Cost& removing) {
  const double scale = 1e6 / static_cast<double>(state.iterations() * state.range(0));
  state.counters["make_us"] = making.time * scale;
  state.counters["make_cpu_us"] = making.processorTime * scale;
  state.counters["remove_us"] = removing.time * scale;
  state.counters["remove_cpu_us"] = removing.processorTime * scale;
}

void agent(benchmark::State& state) {
  const test::TemporaryHome home;
  OpenController controller;
  Cost making;
  Cost removing;
  for ([[maybe_unused]] const auto turn : state) {
    const std::vector<DiskPtr> disks = disksOf(state);
    timeAll(making, disks, state.range(1),
            [&](const DiskPtr& disk) { controller._mountDisk(disk); });
    const bool areThere = entriesIn(home.desktop()) == disks.size();
    timeAll(removing, disks, state.range(1),
            [&](const DiskPtr& disk) { controller._unmountDisk(*disk); });
    if (!areThere || entriesIn(home.desktop()) != 0) {
      state.SkipWithError("not every shortcut was made and removed");
    }
  }
  report(state, making, removing);
}

std::string contentOfShortcut(const test::TemporaryHome& home) {
  OpenController controller;
  const DiskPtr disk = announcedDisk(0);
  controller._mountDisk(disk);
  std::ifstream file(home.desktop() + "/" + *disk->label() + ".app");
  std::string content(std::istreambuf_iterator<char>(file), {});
  controller._unmountDisk(*disk);
  return content;
}

/// The least that files of the same names and content take.
void bare(benchmark::State& state) {
  const test::TemporaryHome home;
  const std::string content = contentOfShortcut(home);
  std::vector<std::string> paths;
  for (const DiskPtr& disk : disksOf(state)) {
    paths.push_back(home.desktop() + "/" + *disk->label() + ".app");
  }
  Cost making;
  Cost removing;
  for ([[maybe_unused]] const auto turn : state) {
    bool works = !content.empty();
    const Cost start = Cost::now();
    for (const std::string& path : paths) {
      const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
      works = ::write(file, content.data(), content.size()) > 0 && works;
      ::close(file);
    }
    making.addSince(start);
    const Cost between = Cost::now();
    for (const std::string& path : paths) {
      works = ::unlink(path.c_str()) == 0 && works;
    }
    removing.addSince(between);
    if (!works) {
      state.SkipWithError("not every file was made and removed");
    }
  }
  report(state, making, removing);
}

BENCHMARK(agent)->Name("shortcuts/agent")->Args({10000, HANDLER_THREAD})->Iterations(1);
BENCHMARK(agent)->Name("shortcuts/one_thread")->Args({10000, MAIN_THREAD})->Iterations(1);
BENCHMARK(bare)->Name("shortcuts/bare")->Arg(10000)->Iterations(1);

}  // namespace

}  // namespace ravelin::bench
