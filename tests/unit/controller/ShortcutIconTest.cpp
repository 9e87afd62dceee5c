#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "controller/Controller.h"
#include "platform/Service.h"
#include "platform/Workspace.h"
#include "support/Pictures.h"
#include "support/TemporaryHome.h"

namespace ravelin {
namespace {

using test::Pictures;

class OpenController : public Controller {
 public:
  using Controller::_getImage;
  using Controller::runApplescript;
  using Controller::setImageInMainThread;
};

/// A workspace that does what a platform's may: raise, or answer no.
class RefusingWorkspace final : public platform::Workspace {
 public:
  bool setIcon(const platform::Image& /*image*/, const std::string& /*forFile*/,
               const Text& /*beneath*/) override {
    if (raises) {
      throw platform::WorkspaceException("100% no");
    }
    return false;
  }
  bool raises = false;
};

class ShortcutIcon : public testing::Test {
 protected:
  ShortcutIcon() {
    std::filesystem::create_directories(home.userSupport());
    std::filesystem::create_directories(home.machineWideSupport());
    disk.setIpAddress("192.0.2.10");
    disk.setLabel("USB");
  }

  static std::string chosen() {
    const auto image = OpenController::_getImage();
    return image ? image->path() : "none";
  }

  std::string setAndCaptureLog() {
    testing::internal::CaptureStderr();
    OpenController::setImageInMainThread(disk);
    return testing::internal::GetCapturedStderr();
  }

  test::TemporaryHome home;
  std::string machineIco = home.machineWideSupport() + "/icon.ico";
  std::string userIco = home.userSupport() + "/icon.ico";
  std::string machineIcns = home.machineWideSupport() + "/icon.icns";
  std::string userIcns = home.userSupport() + "/icon.icns";
  Disk disk;
};

TEST_F(ShortcutIcon, BothFoldersAreTriedForIcoBeforeIcns) {
  EXPECT_EQ(chosen(), "none");
  Pictures::write(userIcns, Pictures::icns());
  EXPECT_EQ(chosen(), userIcns);
  Pictures::write(machineIcns, Pictures::icns());
  EXPECT_EQ(chosen(), machineIcns);
  Pictures::write(userIco, Pictures::ico());
  EXPECT_EQ(chosen(), userIco);
  Pictures::write(machineIco, Pictures::ico());
  EXPECT_EQ(chosen(), machineIco);
}

TEST_F(ShortcutIcon, AFileThatIsNoReadableImageIsSkipped) {
  Pictures::write(machineIco, "no picture");
  Pictures::write(userIco, "");
  Pictures::write(userIcns, Pictures::png());
  EXPECT_EQ(chosen(), userIcns);
}

TEST_F(ShortcutIcon, TheShortcutShowsTheIcon) {
  Pictures::write(userIco, Pictures::ico());
  OpenController::runApplescript(platform::ShortcutScript{"192.0.2.10", "USB", "USB"});
  EXPECT_EQ(setAndCaptureLog(), "");
  std::ifstream stream(home.desktop() + "/USB.app");
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_NE(text.find("\nIcon=" + userIco + "\n"), std::string::npos) << text;
}

TEST_F(ShortcutIcon, WithoutIconFilesTheShortcutStaysAsItIsAndNothingIsWritten) {
  OpenController::runApplescript(platform::ShortcutScript{"192.0.2.10", "USB", "USB"});
  const auto before = std::filesystem::last_write_time(home.desktop() + "/USB.app");
  EXPECT_EQ(setAndCaptureLog(), "");
  EXPECT_EQ(std::filesystem::last_write_time(home.desktop() + "/USB.app"), before);
}

TEST_F(ShortcutIcon, AMissingShortcutFailsQuietly) {
  Pictures::write(userIco, Pictures::ico());
  EXPECT_EQ(setAndCaptureLog(), "");
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(ShortcutIcon, AWorkspaceThatRaisesIsWrittenToTheConsoleLog) {
  Pictures::write(userIco, Pictures::ico());
  RefusingWorkspace workspace;
  const platform::Substitute<platform::Workspace> substitute(workspace);
  EXPECT_EQ(setAndCaptureLog(), "");
  workspace.raises = true;
  const std::string log = setAndCaptureLog();
  EXPECT_NE(log.find("] Ooops could not set image with NSWorkspace! Reason: 100% no\n"),
            std::string::npos)
      << log;
  EXPECT_EQ(log.find("Ravelin Disk: "), std::string::npos) << log;
}

}  // namespace
}  // namespace ravelin
