#include "platform/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>

#include "platform/Service.h"
#include "support/Disposition.h"

namespace ravelin::platform {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using test::Disposition;
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

TEST(ChildProcess, AGrandchildThatKeepsTheOutputOpenIsNotWaitedFor) {
  const auto result = runShell("sleep 1000 & echo $!");
  EXPECT_TRUE(result.succeeded());
  ::kill(std::stoi(result.output), SIGKILL);
}

TEST(ChildProcess, StatusesAreTrueAlsoWhereTheParentIgnoredTheEndOfChildren) {
  const Disposition ignoring(SIGCHLD, SIG_IGN);
  EXPECT_EQ(runShell("exit 3").terminationStatus, 3);
  const Disposition notWaiting(SIGCHLD, SIG_DFL, SA_NOCLDWAIT);
  EXPECT_EQ(runShell("exit 4").terminationStatus, 4);
  EXPECT_TRUE(runShell("kill -KILL $$").wasSignalled);
}

TEST(ChildProcess, AMissingProgramRaises) {
  EXPECT_THROW(service<ChildProcesses>().run("/nonexistent/program", {}, Output::inherited),
               LaunchException);
}

}  // namespace
}  // namespace ravelin::platform
