#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
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

using Clock = std::chrono::steady_clock;

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

/// Acts on every disk and returns the seconds that all took. On the main thread nothing needs
/// to be handed over; on a handler thread the scripts are, to this thread.
double timeAll(const std::vector<DiskPtr>& disks, std::int64_t thread,
               const std::function<void(const DiskPtr&)>& act) {
  const auto start = Clock::now();
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
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// What one file takes, from what all of them took, once for each turn.
void report(benchmark::State& state, double making, double removing) {
  const auto count = static_cast<double>(state.iterations() * state.range(0));
  state.counters["make_us"] = making / count * 1e6;
  state.counters["remove_us"] = removing / count * 1e6;
}

void agent(benchmark::State& state) {
  const test::TemporaryHome home;
  OpenController controller;
  double making = 0;
  double removing = 0;
  for ([[maybe_unused]] const auto turn : state) {
    const std::vector<DiskPtr> disks = disksOf(state);
    making +=
        timeAll(disks, state.range(1), [&](const DiskPtr& disk) { controller._mountDisk(disk); });
    const bool areThere = entriesIn(home.desktop()) == disks.size();
    removing += timeAll(disks, state.range(1),
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
  double making = 0;
  double removing = 0;
  for ([[maybe_unused]] const auto turn : state) {
    bool works = !content.empty();
    const auto start = Clock::now();
    for (const std::string& path : paths) {
      const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
      works = ::write(file, content.data(), content.size()) > 0 && works;
      ::close(file);
    }
    const auto between = Clock::now();
    for (const std::string& path : paths) {
      works = ::unlink(path.c_str()) == 0 && works;
    }
    making += std::chrono::duration<double>(between - start).count();
    removing += std::chrono::duration<double>(Clock::now() - between).count();
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
