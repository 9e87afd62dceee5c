#include "platform/linux/shortcut/Trash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "platform/linux/LinuxFolderAccess.h"
#include "support/StandInChildProcesses.h"
#include "support/TemporaryHome.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

/// The helper program is not the real one, since it fails here in its various ways.
class TrashTest : public testing::Test {
 protected:
  TrashTest() { std::ofstream(_path) << "the user's"; }

  /// Why the thing at the path was not moved, or "" when it was.
  std::string take(const std::string& path) {
    const auto place = _resolver.resolve(path, _home.desktop());
    const auto error = _trash.take(place, _access.find(place.folder.number(), place.name));
    return error ? error->localizedDescription : "";
  }

  const test::TemporaryHome _home;
  const std::string _path = _home.desktop() + "/x.app";
  const LinuxFolderAccess _access;
  const BeneathResolver _resolver{_access};
  test::StandInChildProcesses _helper;
  Trash _trash{_access};
};

TEST_F(TrashTest, TheHelperIsToldWhichFileItIs) {
  // Through a link, which could lead elsewhere by then.
  fs::create_directory_symlink(_home.desktop(), _home.path() + "/link");
  const auto place = _resolver.resolve(_home.path() + "/link/x.app", _home.path() + "/link");
  static_cast<void>(_trash.take(place, _access.find(place.folder.number(), place.name)));
  const auto calls = _helper.takeCalls();
  ASSERT_EQ(calls.size(), 1U);
  struct stat status{};
  ASSERT_EQ(::stat(_path.c_str(), &status), 0);
  EXPECT_TRUE(calls[0].path.ends_with("/ravelin-disk-shortcut-helper"));
  EXPECT_THAT(calls[0].arguments,
              testing::ElementsAre("trash", fs::canonical(_path).string(),
                                   std::to_string(status.st_dev), std::to_string(status.st_ino)));
  EXPECT_TRUE(calls[0].limit.has_value());
}

TEST_F(TrashTest, WhatIsStillThereHasNotBeenMoved) {
  EXPECT_EQ(take(_path), "Not moved to the trash: It is still there");
}

TEST_F(TrashTest, WhatHasComeInItsPlaceMeanwhileIsNoFailure) {
  _helper.answer = [this](const test::ProgramCall&) {
    fs::rename(_path, _home.path() + "/elsewhere");
    std::ofstream(_path) << "another";
    return ChildResult();
  };
  EXPECT_EQ(take(_path), "");
}

TEST_F(TrashTest, TheHelpersReasonIsPassedOnWithoutTheNoiseOfItsLibraries) {
  _helper.answer = [](const test::ProgramCall&) {
    return test::exited(1,
                        "(process:1): GLib-WARNING: noise\n"
                        "ravelin-disk-shortcut-helper: No room\n"
                        "more noise\n");
  };
  EXPECT_EQ(take(_path), "Not moved to the trash: No room");
}

TEST_F(TrashTest, AHelperThatEndsWithoutAWordOrIsMissingIsAReasonToo) {
  _helper.answer = [](const test::ProgramCall&) { return test::exited(1); };
  EXPECT_EQ(take(_path), "Not moved to the trash: The trash is not to be had");
  std::ofstream(_home.desktop() + "/y.app") << "the user's";
  _helper.answer = [](const test::ProgramCall&) -> ChildResult {
    throw LaunchException("cannot start it");
  };
  EXPECT_EQ(take(_home.desktop() + "/y.app"), "Not moved to the trash: cannot start it");
}

TEST_F(TrashTest, WhatTheTrashDidNotTakeIsNotOfferedAgainAtOnce) {
  _helper.answer = [](const test::ProgramCall&) { return test::exited(1); };
  const std::string why = take(_path);
  EXPECT_EQ(take(_path), why);
  EXPECT_EQ(_helper.takeCalls().size(), 1U);
  // Others are, and so is what has been changed.
  std::ofstream(_home.desktop() + "/y.app") << "another";
  EXPECT_NE(take(_home.desktop() + "/y.app"), "");
  EXPECT_EQ(_helper.takeCalls().size(), 1U);
  fs::rename(_path, _home.desktop() + "/z.app");
  EXPECT_NE(take(_home.desktop() + "/z.app"), "");
  EXPECT_EQ(_helper.takeCalls().size(), 1U);
}

TEST_F(TrashTest, AfterAHelperThatHungNothingIsOfferedAtOnce) {
  _helper.answer = [](const test::ProgramCall&) {
    ChildResult result;
    result.timedOut = true;
    return result;
  };
  EXPECT_EQ(take(_path), "Not moved to the trash: The trash does not answer");
  std::ofstream(_home.desktop() + "/y.app") << "another";
  EXPECT_EQ(take(_home.desktop() + "/y.app"), "Not moved to the trash: The trash does not answer");
  EXPECT_EQ(_helper.takeCalls().size(), 1U);
  EXPECT_TRUE(fs::exists(_path));
}

}  // namespace
}  // namespace ravelin::platform
