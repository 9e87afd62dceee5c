#include "platform/TerminationSignal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "platform/RunLoop.h"
#include "platform/posix/TerminationHandling.h"

namespace ravelin::platform {
namespace {

using Seconds = RunLoop::Seconds;

using Installation = void (*)(std::function<void()> handler);

/// The system's own way and the one that every system has. The handler can be installed once per
/// process: every test installs it in a process of its own, which tells by its status how it went.
class TerminationSignalTest : public testing::TestWithParam<std::pair<const char*, Installation>> {
 protected:
  static constexpr int PASSED = 42;

  static void install(std::function<void()> handler) { GetParam().second(std::move(handler)); }

  TerminationSignalTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] static void finish(bool passed) { _exit(passed ? PASSED : 1); }
};

TEST_P(TerminationSignalTest, TheHandlerRunsOnTheMainLoopAndNotInTheSignal) {
  EXPECT_EXIT(
      {
        int calls = 0;
        install([&] { calls += RunLoop::main().isCurrent() ? 1 : 100; });
        RunLoop::main().runOnce(Seconds(0.1));
        const bool silentBefore = calls == 0;
        raise(SIGTERM);
        const bool silentInTheSignal = calls == 0;
        RunLoop::main().runOnce(Seconds(10));
        const bool called = calls == 1;
        RunLoop::main().runOnce(Seconds(0.1));
        finish(silentBefore && silentInTheSignal && called && calls == 1);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, TheHandlerMayEndTheProcess) {
  EXPECT_EXIT(
      {
        install([] { exit(PASSED); });
        raise(SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        finish(false);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, WakesTheSleepingLoopWhicheverThreadRuns) {
  EXPECT_EXIT(
      {
        int calls = 0;
        install([&] { ++calls; });
        for (int expected = 1; expected <= 2; ++expected) {
          std::thread other([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            kill(getpid(), SIGTERM);
          });
          while (calls < expected) {
            RunLoop::main().runOnce(RunLoop::DISTANT_FUTURE);
          }
          other.join();
        }
        finish(calls == 2);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, ComesBeforeEverythingElseThatWaits) {
  std::array<int, 2> ends = {-1, -1};
  EXPECT_EXIT(
      {
        auto& loop = RunLoop::main();
        std::string order;
        const bool readable = pipe(ends.data()) == 0 && write(ends[1], "x", 1) == 1;
        const auto watch = loop.watchReadable(ends[0], RunLoop::Urgency::socket, [&] {
          char byte = 0;
          order += ::read(ends[0], &byte, 1) == 1 ? 's' : '?';
        });
        const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { order += 't'; });
        install([&] { order += 'T'; });
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        loop.perform([&] {
          order += 'a';
          raise(SIGTERM);
        });
        loop.perform([&] { order += 'b'; });
        raise(SIGTERM);
        for (int i = 0; i < 6; ++i) {
          loop.runOnce(Seconds(10));
        }
        const std::size_t action = order.find('a');
        finish(readable && order.starts_with('T') && order.compare(action, 2, "aT") == 0 &&
               std::ranges::is_permutation(order, std::string("TaTbts")));
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, DoesNotDisturbABlockedSystemCall) {
  EXPECT_EXIT(
      {
        int calls = 0;
        install([&] { ++calls; });
        const std::string name = "/ravelin-disk-test-" + std::to_string(getpid());
        sem_t* semaphore = sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, 0);
        sem_unlink(name.c_str());
        int result = -1;
        std::thread waiting([&] { result = sem_wait(semaphore); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        // With the main thread out of the way, the signal meets the waiting one.
        sigset_t termination;
        sigemptyset(&termination);
        sigaddset(&termination, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &termination, nullptr);
        kill(getpid(), SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        sem_post(semaphore);
        waiting.join();
        finish(result == 0 && calls == 1);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, SurvivesManySignals) {
  EXPECT_EXIT(
      {
        int calls = 0;
        install([&] { ++calls; });
        for (int i = 0; i < 10000; ++i) {
          raise(SIGTERM);
        }
        RunLoop::main().runOnce(Seconds(10));
        finish(calls == 1);
      },
      testing::ExitedWithCode(PASSED), "");
}

/// Raises the signal on another thread, which may pass it on to this one, and waits for its effect.
void raiseElsewhereUntilTheEnd(int signal) {
#ifdef __SANITIZE_THREAD__
  // It runs handlers later than the system would, and loses what one of them raises now and then.
  constexpr int ATTEMPTS = 100;
#else
  constexpr int ATTEMPTS = 1;
#endif
  constexpr std::chrono::milliseconds PATIENCE{10000};
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    std::thread([signal] { raise(signal); }).join();
    std::this_thread::sleep_for(PATIENCE / ATTEMPTS);
  }
}

TEST_P(TerminationSignalTest, BeforeItTheSignalsOfASessionEndTheProcess) {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT}) {
    EXPECT_EXIT(
        {
          install([] {});
          raise(signal);
          finish(true);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_EXIT(
        {
          install([] {});
          raiseElsewhereUntilTheEnd(signal);
          finish(true);
        },
        testing::KilledBySignal(signal), "");
  }
}

TEST_P(TerminationSignalTest, BeforeItNoOtherSignalChanges) {
  const auto dispositions = [] {
    std::string text;
    for (int signal = 1; signal < 32; ++signal) {
      struct sigaction action = {};
      const bool belongsHere =
          signal == SIGTERM || signal == SIGHUP || signal == SIGINT || signal == SIGQUIT;
      if (!belongsHere && sigaction(signal, nullptr, &action) == 0) {
        text += action.sa_handler == SIG_DFL ? 'd' : action.sa_handler == SIG_IGN ? 'i' : 'h';
      }
    }
    return text;
  };
  EXPECT_EXIT(
      {
        const std::string before = dispositions();
        install([] {});
        finish(dispositions() == before);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, ASignalThatWasIgnoredStaysIgnored) {
  EXPECT_EXIT(
      {
        signal(SIGHUP, SIG_IGN);
        signal(SIGINT, SIG_IGN);
        install([] {});
        raise(SIGHUP);
        raise(SIGINT);
        finish(true);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, FromItOnTheSignalsOfASessionDoNothing) {
  EXPECT_EXIT(
      {
        bool called = false;
        install([&] { called = true; });
        kill(getpid(), SIGTERM);
        // The loop has not taken it yet.
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT}) {
          kill(getpid(), signal);
          raise(signal);
          std::thread([signal] { raise(signal); }).join();
        }
        while (!called) {
          RunLoop::main().runOnce(Seconds(10));
        }
        finish(true);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, NothingCutsTheHandlerShort) {
  EXPECT_EXIT(
      {
        install([] {
          constexpr std::array MAY_END_IT{SIGTERM, SIGKILL, SIGSTOP, SIGILL,  SIGTRAP,
                                          SIGABRT, SIGBUS,  SIGFPE,  SIGSEGV, SIGSYS};
          for (int signal = 1; signal < NSIG; ++signal) {
            // Some numbers belong to the system's libraries alone.
            struct sigaction action = {};
            if (std::ranges::find(MAY_END_IT, signal) == MAY_END_IT.end() &&
                sigaction(signal, nullptr, &action) == 0) {
              kill(getpid(), signal);
              raise(signal);
            }
          }
          finish(true);
        });
        raise(SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        finish(false);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, IsInstalledOnceAndByTheMainThread) {
  EXPECT_DEATH(
      {
        install([] {});
        install([] {});
      },
      "installTerminationHandler");
  EXPECT_DEATH(std::thread([] { install([] {}); }).join(), "installTerminationHandler");
}

TEST_P(TerminationSignalTest, WhatWakesTheLoopIsKeptFromOtherProgramsAndNeverWaits) {
  const auto openDescriptors = [] {
    std::set<int> numbers;
    for (int number = 0; number < 64; ++number) {
      if (fcntl(number, F_GETFD) != -1) {
        numbers.insert(number);
      }
    }
    return numbers;
  };
  EXPECT_EXIT(
      {
        const bool hasLoop = RunLoop::main().isCurrent();
        const auto before = openDescriptors();
        install([] {});
        const auto after = openDescriptors();
        bool isRight = hasLoop && after.size() > before.size();
        for (const int number : after) {
          isRight &= before.contains(number) || ((fcntl(number, F_GETFD) & FD_CLOEXEC) != 0 &&
                                                 (fcntl(number, F_GETFL) & O_NONBLOCK) != 0);
        }
        finish(isRight);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_P(TerminationSignalTest, IsTakenThoughItWasBlockedOrIgnoredBefore) {
  EXPECT_EXIT(
      {
        int calls = 0;
        sigset_t termination;
        sigemptyset(&termination);
        sigaddset(&termination, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &termination, nullptr);
        signal(SIGTERM, SIG_IGN);
        install([&] { ++calls; });
        kill(getpid(), SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        finish(calls == 1);
      },
      testing::ExitedWithCode(PASSED), "");
}

INSTANTIATE_TEST_SUITE_P(Ways, TerminationSignalTest,
                         testing::Values(std::pair("OfTheSystem", &installTerminationHandler),
                                         std::pair(
                                             "ThroughASocket",
                                             +[](std::function<void()> handler) {
                                               handleTermination(RunLoop::main(), wakeThroughSocket,
                                                                 std::move(handler));
                                             })),
                         [](const auto& way) { return std::string(way.param.first); });

}  // namespace
}  // namespace ravelin::platform
