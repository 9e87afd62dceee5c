#include "platform/Workspace.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "fakes/FakeWorkspace.h"
#include "platform/Image.h"
#include "platform/macos/MacShortcuts.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/StepwiseAccess.h"
#include "support/Pictures.h"
#include "support/TemporaryHome.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using fakes::FakeWorkspace;
using test::Pictures;

class MacWorkspaceTest : public testing::Test {
 protected:
  MacWorkspaceTest() {
    Pictures::write(picture, Pictures::png());
    image = native<ImageReader>().imageWithContentsOfFile(picture);
    fs::create_directories(shortcut + "/Contents");
    mark(home.desktop(), "USB.app");
  }

  static void mark(const std::string& folder, const std::string& name) {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const StepwiseAccess access;
    EXPECT_EQ(MacShortcuts(access).mark(opened.number(), name), 0) << name;
  }

  bool setIcon(const std::string& path) {
    return native<Workspace>().setIcon(*image, path, home.desktop());
  }

  FakeWorkspace workspace;
  test::TemporaryHome home;
  std::string picture = home.path() + "/a picture.png";
  std::string shortcut = home.desktop() + "/USB.app";
  std::unique_ptr<Image> image;
};

TEST_F(MacWorkspaceTest, GivesTheBundleThePicture) {
  EXPECT_TRUE(setIcon(shortcut));
  EXPECT_EQ(workspace.icons(), (std::vector<FakeWorkspace::Icon>{{picture, shortcut, 0}}));
}

TEST_F(MacWorkspaceTest, TellsARefusal) {
  workspace.refuseIcons();
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_EQ(workspace.icons().size(), 1U);
}

TEST_F(MacWorkspaceTest, ItsExceptionIsRaisedWithItsReason) {
  for (const std::string& reason : {std::string("no \xC3\xA4 %@"), std::string()}) {
    workspace.raiseForIcons(reason);
    try {
      setIcon(shortcut);
      ADD_FAILURE() << "nothing was raised";
    } catch (const WorkspaceException& exception) {
      EXPECT_EQ(exception.what(), reason);
    }
  }
}

TEST_F(MacWorkspaceTest, TouchesNothingElse) {
  EXPECT_FALSE(setIcon(home.desktop() + "/missing.app"));
  EXPECT_FALSE(setIcon(home.path() + "/USB.app"));
  EXPECT_FALSE(setIcon(home.desktop() + "/../Desktop/USB.app"));
  EXPECT_FALSE(setIcon(home.desktop() + "/\xFF.app"));
  fs::create_directory_symlink(home.path(), home.desktop() + "/link");
  fs::create_directory(home.path() + "/Other.app");
  mark(home.path(), "Other.app");
  EXPECT_FALSE(setIcon(home.path() + "/Other.app"));
  EXPECT_FALSE(setIcon(home.desktop() + "/link/Other.app"));
  EXPECT_TRUE(workspace.icons().empty());
}

TEST_F(MacWorkspaceTest, WhatIsTheUsersKeepsItsIcon) {
  fs::create_directories(home.desktop() + "/Bundle.app/Contents");
  std::ofstream(home.desktop() + "/File.app") << "content";
  fs::create_directory_symlink(shortcut, home.desktop() + "/Link.app");
  for (const std::string name : {"Bundle.app", "File.app", "Link.app"}) {
    EXPECT_FALSE(setIcon(home.desktop() + "/" + name)) << name;
  }
  EXPECT_TRUE(workspace.icons().empty());
  EXPECT_FALSE(fs::exists(home.desktop() + "/Bundle.app/Icon\r"));
}

}  // namespace
}  // namespace ravelin::platform
