#include "platform/Volumes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/gvfs/MountTable.h"
#include "platform/linux/gvfs/VolumeSituation.h"
#include "support/StandInChildProcesses.h"

namespace ravelin::platform {
namespace {

using test::exited;
using test::ProgramCall;
using testing::ElementsAre;
using testing::IsEmpty;

VolumeStatus statusOf(VolumeSituation situation) { return -static_cast<VolumeStatus>(situation); }

/// The volumes of this system, with a stand-in for the helper program. What GVfs really mounts is
/// the system tests' business; nothing is in the mount table here.
class VolumesTest : public testing::Test {
 protected:
  test::StandInChildProcesses _helper;
  Volumes& _volumes = service<Volumes>();
};

TEST_F(VolumesTest, TheHelperBesideThisProgramMountsAsTheUserWithoutAPassword) {
  _helper.answer = [](const ProgramCall&) { return exited(0, "/run/user/1/gvfs/x"); };
  const auto mount = _volumes.mountServerVolume("smb://192.0.2.10/USB%20Disk", "guest", "");
  EXPECT_EQ(mount.status, 0);
  EXPECT_NE(mount.reference, 0);
  const auto calls = _helper.takeCalls();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].path, std::filesystem::canonical("/proc/self/exe").parent_path() /
                               "ravelin-disk-volumes-helper");
  EXPECT_THAT(calls[0].arguments, ElementsAre("mount", "smb://guest:@192.0.2.10/USB%20Disk"));
  EXPECT_EQ(calls[0].output, ChildProcesses::Output::standardOutput);
  EXPECT_TRUE(calls[0].limit);
}

TEST_F(VolumesTest, OnlyGuestsOfSmbServersAreServed) {
  for (const auto& mount : {_volumes.mountServerVolume("http://192.0.2.10/x", "guest", ""),
                            _volumes.mountServerVolume("192.0.2.10/x", "guest", ""),
                            _volumes.mountServerVolume("smb://192.0.2.10/x", "guest", "secret"),
                            _volumes.mountServerVolume("smb://192.0.2.10/x", "", "")}) {
    EXPECT_EQ(mount.status, statusOf(VolumeSituation::notGuest));
    EXPECT_EQ(mount.reference, 0);
  }
  EXPECT_THAT(_helper.takeCalls(), IsEmpty());
}

TEST_F(VolumesTest, EverySituationHasAStatusAndACommentOfItsOwn) {
  std::set<std::string> comments;
  for (int situation = static_cast<int>(VolumeSituation::noServer);
       situation <= static_cast<int>(VolumeSituation::failed); ++situation) {
    _helper.answer = [&](const ProgramCall&) { return exited(situation, "a message"); };
    const auto mount = _volumes.mountServerVolume("smb://192.0.2.10/x", "guest", "");
    EXPECT_EQ(mount.status, -situation);
    EXPECT_EQ(mount.reference, 0);
    EXPECT_EQ(mount.comment, commentOn(VolumeSituation{situation}, "a message"));
    comments.insert(commentOn(VolumeSituation{situation}));
  }
  for (const auto own : {VolumeSituation::done, VolumeSituation::noHelper,
                         VolumeSituation::notGuest, VolumeSituation::noReferenceLeft}) {
    comments.insert(commentOn(own));
  }
  EXPECT_EQ(comments.size(), 14U);
  EXPECT_FALSE(comments.contains(commentOn(VolumeSituation{1234})));
  EXPECT_EQ(commentOn(VolumeSituation::done), "no error");
}

TEST_F(VolumesTest, TheCommentCarriesWhatGvfsSaid) {
  const auto comment = [this](int situation, const std::string& saying) {
    _helper.answer = [=](const ProgramCall&) { return exited(situation, saying); };
    return _volumes.mountServerVolume("smb://192.0.2.10/x", "guest", "").comment;
  };
  EXPECT_EQ(comment(19, "Invalid argument"), "GVfs could not do it: Invalid argument");
  EXPECT_EQ(comment(19, ""), "GVfs could not do it");
  EXPECT_EQ(comment(18, "sh (pid 7) works in /"), "the volume is in use: sh (pid 7) works in /");
  EXPECT_EQ(comment(11, "Failed to mount"), "the server has no such share");
  // One line of ASCII, whatever it was.
  EXPECT_EQ(comment(19, "Ung\xc3\xbcltig\n\x1b[1m\x7f\xff"),
            "GVfs could not do it: Ung?ltig??[1m??");
  EXPECT_EQ(comment(19, std::string(100'000, 'x')),
            std::string("GVfs could not do it: ").append(300, 'x').append("..."));
}

TEST_F(VolumesTest, AHelperThatIsMissingOrEndsOddlyIsAFailure) {
  _helper.answer = [](const ProgramCall&) -> ChildResult { throw LaunchException("missing"); };
  const auto status = [&] {
    return _volumes.mountServerVolume("smb://192.0.2.10/x", "guest", "").status;
  };
  EXPECT_EQ(status(), statusOf(VolumeSituation::noHelper));
  for (const int odd : {1, 2, 9, 20, 77, 255}) {
    _helper.answer = [odd](const ProgramCall&) { return exited(odd); };
    EXPECT_EQ(status(), statusOf(VolumeSituation::failed)) << odd;
  }
  _helper.answer = [](const ProgramCall&) {
    ChildResult result = exited(11);
    result.wasSignalled = true;
    return result;
  };
  EXPECT_EQ(status(), statusOf(VolumeSituation::failed));
  _helper.answer = [](const ProgramCall&) {
    ChildResult result = exited(9);
    result.wasSignalled = true;
    result.timedOut = true;
    return result;
  };
  EXPECT_EQ(status(), statusOf(VolumeSituation::timedOut));
}

TEST_F(VolumesTest, WhatIsNotMountedHasNoPathAndCannotBeUnmounted) {
  _helper.answer = [](const ProgramCall&) { return exited(0, "/run/user/1/gvfs/x"); };
  const auto reference = _volumes.mountServerVolume("smb://192.0.2.10/x", "guest", "").reference;
  _helper.takeCalls();
  for (const std::int16_t unknown : {std::int16_t{0}, std::int16_t{-1}, reference}) {
    EXPECT_EQ(_volumes.pathOfVolume(unknown), std::nullopt);
    const auto outcome = _volumes.unmountVolume(unknown);
    EXPECT_EQ(outcome.status, statusOf(VolumeSituation::notMounted));
    EXPECT_EQ(outcome.comment, "no mounted volume has this reference");
  }
  EXPECT_THAT(_helper.takeCalls(), IsEmpty());
}

TEST_F(VolumesTest, OnlyWhatGvfsHasMountedHasAReference) {
  EXPECT_EQ(_volumes.referenceOfVolume("/proc"), 0);
  EXPECT_EQ(_volumes.referenceOfVolume("/nowhere"), 0);
}

TEST_F(VolumesTest, VolumesAreNamedByTheEndsOfTheirPathsInTheOrderOfTheTable) {
  std::vector<std::string> roots;
  for (const Volume& volume : _volumes.volumes()) {
    EXPECT_TRUE(volume.rootPath.starts_with('/'));
    EXPECT_EQ(volume.name, volume.rootPath.substr(volume.rootPath.rfind('/') + 1));
    roots.push_back(volume.rootPath);
  }
  const auto table = MountTable::read();
  ASSERT_TRUE(table);
  std::vector<std::string> expected;
  std::ranges::transform(table->volumes(), std::back_inserter(expected), &Mount::point);
  EXPECT_EQ(roots, expected);
}

}  // namespace
}  // namespace ravelin::platform
