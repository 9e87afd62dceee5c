#include "platform/TerminationSignal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "platform/RunLoop.h"

namespace ravelin::platform {
namespace {

using Seconds = RunLoop::Seconds;

/// The handler can be installed once per process: every test installs it in a process of its own,
/// which tells by its status how it went.
class TerminationSignalTest : public testing::Test {
 protected:
  static constexpr int PASSED = 42;

  TerminationSignalTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] static void finish(bool passed) { _exit(passed ? PASSED : 1); }
};

TEST_F(TerminationSignalTest, TheHandlerRunsOnTheMainLoopAndNotInTheSignal) {
  EXPECT_EXIT(
      {
        int calls = 0;
        installTerminationHandler([&] { calls += RunLoop::main().isCurrent() ? 1 : 100; });
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

TEST_F(TerminationSignalTest, TheHandlerMayEndTheProcess) {
  EXPECT_EXIT(
      {
        installTerminationHandler([] { exit(PASSED); });
        raise(SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        finish(false);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, WakesTheSleepingLoopWhicheverThreadRuns) {
  EXPECT_EXIT(
      {
        int calls = 0;
        installTerminationHandler([&] { ++calls; });
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

TEST_F(TerminationSignalTest, ComesBeforeEverythingElseThatWaits) {
  std::array<int, 2> ends = {-1, -1};
  EXPECT_EXIT(
      {
        auto& loop = RunLoop::main();
        std::string order;
        const bool readable = pipe(ends.data()) == 0 && write(ends[1], "x", 1) == 1;
        const auto watch =
            loop.watchReadable(ends[0], RunLoop::Urgency::socket, [&] { order += 's'; });
        const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { order += 't'; });
        installTerminationHandler([&] { order += 'T'; });
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
        finish(readable && order == "TaTbts");
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, DoesNotDisturbABlockedSystemCall) {
  EXPECT_EXIT(
      {
        int calls = 0;
        installTerminationHandler([&] { ++calls; });
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

TEST_F(TerminationSignalTest, SurvivesManySignals) {
  EXPECT_EXIT(
      {
        int calls = 0;
        installTerminationHandler([&] { ++calls; });
        for (int i = 0; i < 10000; ++i) {
          raise(SIGTERM);
        }
        RunLoop::main().runOnce(Seconds(10));
        finish(calls == 1);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, BeforeItTheSignalsOfASessionEndTheProcess) {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT}) {
    EXPECT_EXIT(
        {
          installTerminationHandler([] {});
          raise(signal);
          finish(true);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_EXIT(
        {
          installTerminationHandler([] {});
          std::thread([signal] { raise(signal); }).join();
          finish(true);
        },
        testing::KilledBySignal(signal), "");
  }
}

TEST_F(TerminationSignalTest, BeforeItNoOtherSignalChanges) {
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
        installTerminationHandler([] {});
        finish(dispositions() == before);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, ASignalThatWasIgnoredStaysIgnored) {
  EXPECT_EXIT(
      {
        signal(SIGHUP, SIG_IGN);
        signal(SIGINT, SIG_IGN);
        installTerminationHandler([] {});
        raise(SIGHUP);
        raise(SIGINT);
        finish(true);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, FromItOnTheSignalsOfASessionDoNothing) {
  EXPECT_EXIT(
      {
        bool called = false;
        installTerminationHandler([&] { called = true; });
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

TEST_F(TerminationSignalTest, NothingCutsTheHandlerShort) {
  EXPECT_EXIT(
      {
        installTerminationHandler([] {
          for (const int signal :
               {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ,
                SIGVTALRM, SIGPROF, SIGIO, SIGPWR, SIGTSTP, SIGTTIN, SIGTTOU, SIGRTMIN, SIGRTMAX}) {
            kill(getpid(), signal);
            raise(signal);
          }
          finish(true);
        });
        raise(SIGTERM);
        RunLoop::main().runOnce(Seconds(10));
        finish(false);
      },
      testing::ExitedWithCode(PASSED), "");
}

TEST_F(TerminationSignalTest, IsInstalledOnceAndByTheMainThread) {
  EXPECT_DEATH(
      {
        installTerminationHandler([] {});
        installTerminationHandler([] {});
      },
      "installTerminationHandler");
  EXPECT_DEATH(std::thread([] { installTerminationHandler([] {}); }).join(),
               "installTerminationHandler");
}

}  // namespace
}  // namespace ravelin::platform
