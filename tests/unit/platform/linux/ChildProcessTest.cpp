#include "platform/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <sstream>

#include "platform/Service.h"
#include "support/Disposition.h"

namespace ravelin::platform {
namespace {

using std::chrono_literals::operator""s;
using test::Disposition;
using Output = ChildProcesses::Output;

ChildResult runShell(const std::string& script) {
  return service<ChildProcesses>().run("/bin/sh", {"-c", script}, Output::collected);
}

TEST(LinuxChildProcess, AProgramThatDoesNotEvenEndWhenItIsKilledIsGivenUp) {
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

TEST(LinuxChildProcess, AChildOfWhichNobodyKnowsHowItEndedHasFailed) {
  const Disposition endOfChild(SIGCHLD, SIG_DFL);
  const Disposition request(SIGUSR1, [](int /*signal*/) { ::signal(SIGCHLD, SIG_IGN); });
  const auto result = runShell(
      "kill -USR1 $PPID\n"
      "until grep -Eq '^SigIgn:.*[13579bdf]....$' /proc/$PPID/status; do :; done");
  EXPECT_FALSE(result.succeeded());
  EXPECT_FALSE(result.wasSignalled);
  EXPECT_EQ(result.terminationStatus, -1);
}

TEST(LinuxChildProcess, ChildrenBeginWithDefaultSignals) {
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

}  // namespace
}  // namespace ravelin::platform
