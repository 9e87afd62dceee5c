#include "platform/SystemPrograms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/StandInChildProcesses.h"

namespace ravelin::platform {
namespace {

using Output = ChildProcesses::Output;
using Words = std::vector<std::string>;
using test::exited;

class MacSystemProgramsTest : public testing::Test {
 protected:
  /// That just this program was run, without a limit.
  void expectRun(const std::string& path, const Words& arguments, Output output) {
    const auto calls = processes.takeCalls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].path, path);
    EXPECT_EQ(calls[0].arguments, arguments);
    EXPECT_EQ(calls[0].output, output);
    EXPECT_EQ(calls[0].limit, std::nullopt);
  }

  test::StandInChildProcesses processes;
  SystemPrograms& programs = native<SystemPrograms>();
};

TEST_F(MacSystemProgramsTest, TheTableIsWhatTheProgramWritesHoweverItEnds) {
  const std::string table =
      "/dev/disk3s1s1 on / (apfs, sealed, local, read-only, journaled)\n"
      "//guest:@192.0.2.10/USB%20Disk on /Volumes/USB Disk (smbfs, nodev, nosuid)\n";
  for (const int status : {0, 1}) {
    processes.answer = [&](const test::ProgramCall&) { return exited(status, table); };
    const MountListing listing = programs.mountTable();
    EXPECT_EQ(listing.text, table);
    EXPECT_TRUE(listing.caseless.empty());
    expectRun("/sbin/mount", {}, Output::collected);
  }
}

TEST_F(MacSystemProgramsTest, AShareIsMountedAsGuestIntoTheFolder) {
  processes.answer = [](const test::ProgramCall&) { return exited(64, "File exists"); };
  const ChildResult result =
      programs.mountGuestShare("192.0.2.10", "USB%20Disk", "/Users/me/a folder");
  EXPECT_EQ(result.terminationStatus, 64);
  EXPECT_EQ(result.output, "File exists");
  expectRun("/sbin/mount", {"-t", "smbfs", "//guest:@192.0.2.10/USB%20Disk", "/Users/me/a folder"},
            Output::collected);
}

TEST_F(MacSystemProgramsTest, TheOthersTakeThePathAlone) {
  processes.answer = [](const test::ProgramCall&) { return exited(3); };
  EXPECT_EQ(programs.umount("/Volumes/a b").terminationStatus, 3);
  expectRun("/sbin/umount", {"/Volumes/a b"}, Output::inherited);
  EXPECT_EQ(programs.mkdir("/x y").terminationStatus, 3);
  expectRun("/bin/mkdir", {"/x y"}, Output::collected);
  EXPECT_EQ(programs.rmdir("/x y").terminationStatus, 3);
  expectRun("/bin/rmdir", {"/x y"}, Output::collected);
}

TEST_F(MacSystemProgramsTest, AProgramThatCannotBeStartedRaises) {
  processes.answer = [](const test::ProgramCall&) -> ChildResult { throw LaunchException("no"); };
  EXPECT_THROW(programs.mountTable(), LaunchException);
  EXPECT_THROW(programs.mountGuestShare("s", "x", "/x"), LaunchException);
  EXPECT_THROW(programs.umount("/x"), LaunchException);
  EXPECT_THROW(programs.mkdir("/x"), LaunchException);
  EXPECT_THROW(programs.rmdir("/x"), LaunchException);
}

}  // namespace
}  // namespace ravelin::platform
