#include "platform/FileManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/Service.h"
#include "support/Shortcuts.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using test::shortcutWith;

class LinuxFileManagerTest : public testing::Test {
 protected:
  LinuxFileManagerTest() {
    fs::create_directory(_desktop);
    fs::create_directory(_outside);
  }

  [[nodiscard]] std::string onDesktop(const std::string& name) const {
    return _desktop + "/" + name;
  }

  FileManager& _files = native<FileManager>();
  const test::TemporaryDirectory _temporary;
  const std::string _desktop = _temporary.path() + "/Desktop";
  const std::string _outside = _temporary.path() + "/Outside";
};

TEST_F(LinuxFileManagerTest, ReadsAFileThatAnnouncesNoSize) {
  const Text content = _files.contentsAtPath("/proc/self/status", FileManager::CONTENT_LIMIT).text;
  ASSERT_TRUE(content);
  EXPECT_NE(content->find("Pid:"), std::string::npos);
}

// Somebody exchanges a folder for a link that leads out, over and over, while files are being
// written through it.
TEST_F(LinuxFileManagerTest, AFolderThatBecomesALinkMeanwhileLeadsNowhere) {
  fs::create_directory(onDesktop("inner"));
  fs::create_directory_symlink(_outside, onDesktop("link"));
  std::atomic<bool> isDone = false;
  std::thread exchanger([&] {
    while (!isDone) {
      ::renameat2(AT_FDCWD, onDesktop("inner").c_str(), AT_FDCWD, onDesktop("link").c_str(),
                  RENAME_EXCHANGE);
    }
  });
  int failures = 0;
  int successes = 0;
  for (int round = 0; round < 200'000 && (failures < 100 || successes < 100); ++round) {
    const bool failed =
        _files.writeShortcutAtPath(onDesktop("inner/USB.app"), _desktop, shortcutWith("x"))
            .has_value();
    (failed ? failures : successes) += 1;
  }
  isDone = true;
  exchanger.join();
  EXPECT_GT(failures, 0);
  EXPECT_GT(successes, 0);
  EXPECT_TRUE(fs::is_empty(_outside));
}

}  // namespace
}  // namespace ravelin::platform
