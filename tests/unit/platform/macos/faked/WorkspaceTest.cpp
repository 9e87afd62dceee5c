#include "platform/Workspace.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "fakes/FakeWorkspace.h"
#include "platform/Image.h"
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
  EXPECT_FALSE(setIcon(home.desktop() + "/link/Other.app"));
  EXPECT_TRUE(workspace.icons().empty());
}

}  // namespace
}  // namespace ravelin::platform
