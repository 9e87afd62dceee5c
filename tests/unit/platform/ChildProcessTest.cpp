#include "platform/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <sstream>

#include "platform/Service.h"

namespace ravelin::platform {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using Output = ChildProcesses::Output;

ChildResult runShell(const std::string& script,
                     std::optional<std::chrono::milliseconds> limit = std::nullopt) {
  return service<ChildProcesses>().run("/bin/sh", {"-c", script}, Output::collected, limit);
}

TEST(ChildProcess, ArgumentsArriveAsTheyAreWithoutAShell) {
  const auto result = service<ChildProcesses>().run(
      "/usr/bin/printf", {"[%s]", "a b", "$HOME;true", "", "\"quoted\""}, Output::collected);
  EXPECT_TRUE(result.succeeded());
  EXPECT_EQ(result.output, "[a b][$HOME;true][][\"quoted\"]");
}

TEST(ChildProcess, BothOutputsAreCollectedInTheOrderOfWriting) {
  EXPECT_EQ(runShell("echo one; echo two >&2; echo three").output, "one\ntwo\nthree\n");
}

TEST(ChildProcess, ExitStatusesAndSignalsAreTold) {
  EXPECT_EQ(runShell("exit 64").terminationStatus, 64);
  const auto killed = runShell("kill -KILL $$");
  EXPECT_TRUE(killed.wasSignalled);
  EXPECT_EQ(killed.terminationStatus, SIGKILL);
  EXPECT_FALSE(killed.succeeded());
}

TEST(ChildProcess, AMegabyteOfOutputDoesNotBlockTheChild) {
  const auto result = runShell("head -c 1048576 /dev/zero; exit 3");
  EXPECT_EQ(result.output.size(), 1048576U);
  EXPECT_EQ(result.terminationStatus, 3);
}

TEST(ChildProcess, OutputBeyondTheLimitIsReadAndDropped) {
  const auto result = runShell("head -c 30000000 /dev/zero");
  EXPECT_EQ(result.output.size(), 16U * 1024 * 1024);
  EXPECT_TRUE(result.succeeded());
}

TEST(ChildProcess, StandardInputIsEmpty) { EXPECT_EQ(runShell("cat; echo end").output, "end\n"); }

TEST(ChildProcess, AProgramThatDoesNotEndIsKilledWhenTheTimeIsUp) {
  const auto result = runShell("echo begun; exec sleep 1000", 200ms);
  EXPECT_TRUE(result.timedOut);
  EXPECT_TRUE(result.wasSignalled);
  EXPECT_EQ(result.output, "begun\n");
}

TEST(ChildProcess, AProgramThatDoesNotEvenEndWhenItIsKilledIsGivenUp) {
  // One that is being traced by another process is not gone before its tracer lets it go.
  const auto result = service<ChildProcesses>().run(
      "/usr/bin/python3",
      {"-c",
       "import ctypes, os, time\n"
       "libc = ctypes.CDLL(None)\n"
       "libc.prctl(0x59616d61, ctypes.c_ulong(-1))\n"  // anybody may trace this process
       "program = os.getpid()\n"
       "tracer = os.fork()\n"
       "if tracer == 0:\n"
       "    os.closerange(0, 3)\n"
       "    libc.ptrace(0x4206, program, None, None)\n"  // PTRACE_SEIZE
       "else:\n"
       "    print(program, tracer, flush=True)\n"
       "time.sleep(60)\n"},
      Output::collected, 3s);
  EXPECT_TRUE(result.timedOut);
  EXPECT_TRUE(result.wasSignalled);
  EXPECT_EQ(result.terminationStatus, SIGKILL);

  std::istringstream output(result.output);
  pid_t program = 0;
  pid_t tracer = 0;
  output >> program >> tracer;
  ASSERT_GT(tracer, 0);
  EXPECT_EQ(::kill(program, 0), 0);
  ::kill(tracer, SIGKILL);
  // It is cleared away when the next one is run.
  for (int attempt = 0; attempt < 1000 && ::kill(program, 0) == 0; ++attempt) {
    runShell("sleep 0.01");
  }
  EXPECT_NE(::kill(program, 0), 0);
}

TEST(ChildProcess, AGrandchildThatKeepsTheOutputOpenIsNotWaitedFor) {
  const auto result = runShell("sleep 1000 & echo $!");
  EXPECT_TRUE(result.succeeded());
  ::kill(std::stoi(result.output), SIGKILL);
}

/// Puts a way to take a signal in force for its lifetime.
class Disposition {
 public:
  Disposition(int signal, void (*handler)(int), int flags = 0) : _signal(signal) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    ::sigaction(signal, &action, &_before);
  }
  ~Disposition() { ::sigaction(_signal, &_before, nullptr); }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;

 private:
  int _signal;
  struct sigaction _before = {};
};

TEST(ChildProcess, StatusesAreTrueAlsoWhereTheParentIgnoredTheEndOfChildren) {
  const Disposition ignoring(SIGCHLD, SIG_IGN);
  EXPECT_EQ(runShell("exit 3").terminationStatus, 3);
  const Disposition notWaiting(SIGCHLD, SIG_DFL, SA_NOCLDWAIT);
  EXPECT_EQ(runShell("exit 4").terminationStatus, 4);
  EXPECT_TRUE(runShell("kill -KILL $$").wasSignalled);
}

TEST(ChildProcess, AChildOfWhichNobodyKnowsHowItEndedHasFailed) {
  const Disposition endOfChild(SIGCHLD, SIG_DFL);
  const Disposition request(SIGUSR1, [](int /*signal*/) { ::signal(SIGCHLD, SIG_IGN); });
  const auto result = runShell(
      "kill -USR1 $PPID\n"
      "until grep -Eq '^SigIgn:.*[13579bdf]....$' /proc/$PPID/status; do :; done");
  EXPECT_FALSE(result.succeeded());
  EXPECT_FALSE(result.wasSignalled);
  EXPECT_EQ(result.terminationStatus, -1);
}

TEST(ChildProcess, ChildrenBeginWithDefaultSignals) {
  const Disposition hangUp(SIGHUP, SIG_IGN);
  const Disposition brokenPipe(SIGPIPE, SIG_IGN);
  const Disposition endOfChild(SIGCHLD, SIG_IGN);
  const auto result = service<ChildProcesses>().run(
      "/bin/sed", {"-En", "s/^Sig(Ign|Blk):\t//p", "/proc/self/status"}, Output::collected);
  std::istringstream masks(result.output);
  std::uint64_t blocked = ~0ULL;
  std::uint64_t ignored = ~0ULL;
  masks >> std::hex >> blocked >> ignored;
  EXPECT_EQ(blocked, 0U) << result.output;
  // Signals 32 and 33 belong to the C library.
  EXPECT_EQ(ignored & ~0x180000000ULL, 0U) << result.output;
}

TEST(ChildProcess, AMissingProgramRaises) {
  EXPECT_THROW(service<ChildProcesses>().run("/nonexistent/program", {}, Output::inherited),
               LaunchException);
}

}  // namespace
}  // namespace ravelin::platform
