#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Service.h"
#include "platform/Workspace.h"
#include "support/Announcements.h"
#include "support/OpenController.h"
#include "support/Pictures.h"
#include "support/Shortcuts.h"
#include "support/TemporaryHome.h"

namespace ravelin {
namespace {

using test::Pictures;

/// A workspace that does what a platform's may: raise, or return false.
class RefusingWorkspace final : public platform::Workspace {
 public:
  bool setIcon(const platform::Image& /*image*/, const std::string& /*forFile*/,
               const Text& /*beneath*/) override {
    ++timesAsked;
    if (raises) {
      throw platform::WorkspaceException("100% no");
    }
    return false;
  }

  void forgetIcon(const std::string& ofFile, const Text& beneath) override {
    forgotten.push_back(ofFile + " beneath " + textOrNull(beneath));
  }

  bool raises = false;
  int timesAsked = 0;
  std::vector<std::string> forgotten;
};

class ShortcutIcon : public testing::Test {
 protected:
  ShortcutIcon() {
    std::filesystem::create_directories(home.userSupport());
    std::filesystem::create_directories(home.machineWideSupport());
  }

  /// Mounts a disk, and returns what that writes to the log.
  std::string mountAndCaptureLog(const std::string& label = "USB") {
    testing::internal::CaptureStderr();
    controller._mountDisk(test::makeDisk({.ip = "192.0.2.10", .label = label}));
    return testing::internal::GetCapturedStderr();
  }

  /// The icon that the shortcut of a disk gets now.
  std::string chosen() {
    EXPECT_EQ(mountAndCaptureLog(), "");
    const std::string shortcut = home.desktop() + "/USB.app";
    EXPECT_TRUE(std::filesystem::exists(shortcut));
    return test::pictureOf(shortcut);
  }

  test::TemporaryHome home;
  std::string machineIco = home.machineWideSupport() + "/icon.ico";
  std::string userIco = home.userSupport() + "/icon.ico";
  std::string machineIcns = home.machineWideSupport() + "/icon.icns";
  std::string userIcns = home.userSupport() + "/icon.icns";
  test::OpenController controller;
};

TEST_F(ShortcutIcon, BothFoldersAreTriedForIcoBeforeIcns) {
  EXPECT_EQ(chosen(), "");
  Pictures::write(userIcns, Pictures::icns());
  EXPECT_EQ(chosen(), userIcns);
  Pictures::write(machineIcns, Pictures::icns());
  EXPECT_EQ(chosen(), machineIcns);
  Pictures::write(userIco, Pictures::ico());
  EXPECT_EQ(chosen(), userIco);
  Pictures::write(machineIco, Pictures::ico());
  EXPECT_EQ(chosen(), machineIco);
}

TEST_F(ShortcutIcon, WithoutAPictureAnEarlierOneIsForgotten) {
  RefusingWorkspace workspace;
  const platform::Substitute<platform::Workspace> substitute(workspace);
  mountAndCaptureLog("One");
  EXPECT_EQ(workspace.forgotten,
            std::vector{home.desktop() + "/One.app beneath " + home.desktop()});
  Pictures::write(userIco, Pictures::ico());
  mountAndCaptureLog("Other");
  EXPECT_EQ(workspace.forgotten.size(), 1U);
  EXPECT_EQ(workspace.timesAsked, 1);
}

TEST_F(ShortcutIcon, AFileThatIsNoReadableImageIsSkipped) {
  Pictures::write(machineIco, "no picture");
  Pictures::write(userIco, "");
  Pictures::write(userIcns, Pictures::png());
  EXPECT_EQ(chosen(), userIcns);
}

TEST_F(ShortcutIcon, WithoutIconFilesTheWorkspaceIsNotAsked) {
  RefusingWorkspace workspace;
  const platform::Substitute<platform::Workspace> substitute(workspace);
  EXPECT_EQ(mountAndCaptureLog(), "");
  EXPECT_EQ(workspace.timesAsked, 0);
  Pictures::write(userIco, Pictures::ico());
  EXPECT_EQ(mountAndCaptureLog(), "");
  EXPECT_EQ(workspace.timesAsked, 1);
}

TEST_F(ShortcutIcon, AMissingShortcutFailsQuietly) {
  Pictures::write(userIco, Pictures::ico());
  // The script with this label does not run.
  EXPECT_EQ(mountAndCaptureLog("\""), "");
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(ShortcutIcon, AWorkspaceThatRaisesIsWrittenToTheConsoleLog) {
  Pictures::write(userIco, Pictures::ico());
  RefusingWorkspace workspace;
  const platform::Substitute<platform::Workspace> substitute(workspace);
  EXPECT_EQ(mountAndCaptureLog(), "");
  workspace.raises = true;
  const std::string log = mountAndCaptureLog();
  EXPECT_NE(log.find("] Ooops could not set image with NSWorkspace! Reason: 100% no\n"),
            std::string::npos)
      << log;
  EXPECT_EQ(log.find("Ravelin Disk: "), std::string::npos) << log;
}

}  // namespace
}  // namespace ravelin
