#include "platform/Workspace.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/Image.h"
#include "platform/Service.h"
#include "platform/linux/shortcut/ShortcutHelper.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/Pictures.h"
#include "support/StandInChildProcesses.h"
#include "support/TemporaryHome.h"

namespace ravelin::platform {
namespace {

using test::Pictures;

class WorkspaceTest : public testing::Test {
 protected:
  WorkspaceTest() {
    Pictures::write(picture, Pictures::png());
    image = service<ImageReader>().imageWithContentsOfFile(picture);
  }

  static std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  bool setIcon(const std::string& path) {
    return service<Workspace>().setIcon(*image, path, home.desktop());
  }

  test::TemporaryHome home;
  std::string picture = home.path() + "/a picture.png";
  std::string shortcut = home.desktop() + "/USB.app";
  std::unique_ptr<Image> image;
};

TEST_F(WorkspaceTest, TheShortcutNamesThePictureAndKeepsTheRest) {
  ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", "USB", "USB"}));
  const std::string before = contentOf(shortcut);
  setIcon(shortcut);
  std::string expected = before;
  const std::string themed = "Icon=ravelin-disk\n";
  expected.replace(expected.find(themed), themed.size(), "Icon=" + picture + "\n");
  EXPECT_EQ(contentOf(shortcut), expected);
  setIcon(shortcut);
  EXPECT_EQ(contentOf(shortcut), expected);
}

TEST_F(WorkspaceTest, AHelperThatHangsIsLetAloneButTheShortcutStillNamesThePicture) {
  ASSERT_NE(image, nullptr);
  ShortcutHelper program;
  const Substitute<ShortcutHelper> substitute(program);
  test::StandInChildProcesses helper;
  helper.answer = [](const test::ProgramCall& /*call*/) {
    return ChildResult{
        .terminationStatus = SIGKILL, .wasSignalled = true, .timedOut = true, .output = {}};
  };
  for (const char* label : {"USB", "Second", "Third"}) {
    const std::string path = home.desktop() + "/" + label + ".app";
    ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", label, label}));
    EXPECT_FALSE(setIcon(path));
    EXPECT_NE(contentOf(path).find("\nIcon=" + picture + "\n"), std::string::npos);
  }
  EXPECT_EQ(helper.takeCalls().size(), 1U);
}

TEST_F(WorkspaceTest, AMissingShortcutIsNotMade) {
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(WorkspaceTest, WhatIsNoShortcutStaysAsItIs) {
  Pictures::write(shortcut, "somebody else's\nIcon=theirs\n");
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_EQ(contentOf(shortcut), "somebody else's\nIcon=theirs\n");
}

TEST_F(WorkspaceTest, ALinkIsNotFollowed) {
  ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", "USB", "USB"}));
  const std::string outside = home.path() + "/outside";
  std::filesystem::rename(shortcut, outside);
  std::filesystem::create_symlink(outside, shortcut);
  const std::string before = contentOf(outside);
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_EQ(contentOf(outside), before);
  EXPECT_TRUE(std::filesystem::is_symlink(shortcut));
}

}  // namespace
}  // namespace ravelin::platform
