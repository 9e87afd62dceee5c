#include "platform/ChildProcess.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "platform/posix/Descriptor.h"
#include "support/NoFreeDescriptors.h"

namespace ravelin::platform {
namespace {

using Output = ChildProcesses::Output;

TEST(MacChildProcess, ChildrenThatEndAtOnceAreNotMissed) {
  // Some have ended before anybody could watch them, some end meanwhile.
  for (int run = 0; run < 200; ++run) {
    const auto result = native<ChildProcesses>().run("/bin/sh", {"-c", "exit 7"}, Output::inherited,
                                                     std::chrono::seconds(20));
    EXPECT_EQ(result.terminationStatus, 7);
    EXPECT_FALSE(result.timedOut);
  }
}

TEST(MacChildProcess, WhatAnybodyElseHasOpenIsNotInherited) {
  // Not close-on-exec, as what a library of the system's has opened.
  const Descriptor other(::dup(STDIN_FILENO));
  const auto result = native<ChildProcesses>().run(
      "/bin/sh", {"-c", "test -e /dev/fd/" + std::to_string(other.number())}, Output::collected);
  EXPECT_EQ(result.terminationStatus, 1);
}

TEST(MacChildProcess, WithoutAPipeItIsNotStarted) {
  const test::NoFreeDescriptors none;
  EXPECT_THROW(native<ChildProcesses>().run("/bin/true", {}, Output::collected), LaunchException);
}

}  // namespace
}  // namespace ravelin::platform
