#include "platform/SystemPrograms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/Service.h"
#include "support/StandInChildProcesses.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

using test::exited;
using test::ProgramCall;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// What is run on this system.
class SystemProgramsTest : public testing::Test {
 protected:
  ProgramCall onlyCall() {
    const auto calls = _processes.takeCalls();
    EXPECT_EQ(calls.size(), 1U);
    return calls.empty() ? ProgramCall() : calls.front();
  }

  test::StandInChildProcesses _processes;
  SystemPrograms& _programs = service<SystemPrograms>();
};

TEST_F(SystemProgramsTest, ASmbMountIsOneOfTheKernelsAsGuest) {
  _processes.answer = [](const ProgramCall&) { return exited(32, "no"); };
  const auto result = _programs.mountGuestShare("192.0.2.10", "USB%20Disk", "/home/u/USB Disk");
  EXPECT_EQ(result.terminationStatus, 32);
  EXPECT_EQ(result.output, "no");
  const ProgramCall call = onlyCall();
  EXPECT_THAT(call.arguments, ElementsAre("-t", "cifs", "-o", "guest", "//192.0.2.10/USB Disk",
                                          "/home/u/USB Disk"));
  EXPECT_THAT(call.path, EndsWith("/mount"));
  EXPECT_EQ(::access(call.path.c_str(), X_OK), 0);
  EXPECT_EQ(call.output, ChildProcesses::Output::collected);
  EXPECT_FALSE(call.limit);
}

TEST_F(SystemProgramsTest, FoldersAreMadeRemovedAndUnmountedByTheirPrograms) {
  _programs.mkdir("/mnt/a b");
  ProgramCall call = onlyCall();
  EXPECT_THAT(call.path, EndsWith("/mkdir"));
  EXPECT_THAT(call.arguments, ElementsAre("/mnt/a b"));
  _programs.rmdir("/mnt/a b");
  call = onlyCall();
  EXPECT_THAT(call.path, EndsWith("/rmdir"));
  EXPECT_THAT(call.arguments, ElementsAre("/mnt/a b"));
  _processes.answer = [](const ProgramCall&) { return exited(16); };
  EXPECT_EQ(_programs.umount("/mnt/a b").terminationStatus, 16);
  call = onlyCall();
  EXPECT_THAT(call.path, EndsWith("/umount"));
  EXPECT_THAT(call.arguments, ElementsAre("/mnt/a b"));
  EXPECT_EQ(call.output, ChildProcesses::Output::inherited);
}

TEST_F(SystemProgramsTest, TheMountTableNeedsNoProgram) {
  EXPECT_THAT(_programs.mountTable().text, HasSubstr(" on /proc (proc, "));
  EXPECT_THAT(_processes.takeCalls(), IsEmpty());
}

TEST(SystemProgramsForRealTest, TheProgramsAreTheRealOnes) {
  auto& programs = service<SystemPrograms>();
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/-a folder";
  EXPECT_EQ(programs.mkdir(path).terminationStatus, 0);
  EXPECT_TRUE(std::filesystem::is_directory(path));
  EXPECT_NE(programs.mkdir(path).terminationStatus, 0);
  EXPECT_NE(programs.umount(path).terminationStatus, 0);
  EXPECT_EQ(programs.rmdir(path).terminationStatus, 0);
  EXPECT_FALSE(std::filesystem::exists(path));
  const auto result =
      programs.mountGuestShare("127.0.0.1", "no%20share", directory.path() + "/missing");
  EXPECT_NE(result.terminationStatus, 0);
  EXPECT_THAT(result.output, HasSubstr("missing"));
}

}  // namespace
}  // namespace ravelin::platform
