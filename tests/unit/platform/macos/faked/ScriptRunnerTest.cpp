#include "platform/scripts/ScriptRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/FakeScripts.h"
#include "fakes/FakeSystem.h"
#include "platform/FileManager.h"
#include "support/TemporaryHome.h"
#include "support/linux/Seccomp.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

class MacScriptRunnerTest : public testing::Test {
 protected:
  MacScriptRunnerTest() { scripts.setDesktop(home.desktop()); }

  static bool run(const Script& script) { return native<ScriptRunner>().run(script); }

  static ShortcutScript shortcutFor(const Text& label) { return {"192.0.2.10", "USB", label}; }

  [[nodiscard]] std::string at(const std::string& name) const {
    return home.desktop() + "/" + name;
  }

  /// Whether it is known for a shortcut, and can be removed as one.
  [[nodiscard]] bool isRemovedAsShortcut(const std::string& name) const {
    return !native<FileManager>().removeShortcutAtPath(at(name), home.desktop()) &&
           !fs::exists(at(name));
  }

  test::TemporaryHome home;
  fakes::FakeScripts scripts;
};

TEST_F(MacScriptRunnerTest, TheSourcesAreRunToTheLetter) {
  EXPECT_TRUE(run(shortcutFor("USB Disk \xC3\xA4")));
  EXPECT_TRUE(run(RemovalScript{"Gone.app"}));
  EXPECT_TRUE(run(AliasScript{"USB", "/Volumes/USB"}));
  EXPECT_THAT(scripts.sources(), ElementsAre("script myScript\n"
                                             "tell application \"Finder\"\n"
                                             "open location \"smb://guest:@192.0.2.10/USB\"\n"
                                             "end tell\n"
                                             "end script\n"
                                             "store script myScript in (path to desktop as text) & "
                                             "\"USB Disk \xC3\xA4.app\"",
                                             RemovalScript{"Gone.app"}.source(),
                                             AliasScript{"USB", "/Volumes/USB"}.source()));
}

TEST_F(MacScriptRunnerTest, AbsentValuesStandAsTheirPlaceholder) {
  EXPECT_TRUE(run(ShortcutScript{std::nullopt, std::nullopt, std::nullopt}));
  ASSERT_EQ(scripts.sources().size(), 1U);
  EXPECT_THAT(scripts.sources()[0], testing::HasSubstr("smb://guest:@(null)/(null)\""));
  EXPECT_TRUE(isRemovedAsShortcut("(null).app"));
}

TEST_F(MacScriptRunnerTest, WhatIsStoredIsMarkedAsAShortcut) {
  EXPECT_TRUE(run(shortcutFor("USB")));
  EXPECT_TRUE(fs::is_directory(at("USB.app")));
  EXPECT_TRUE(isRemovedAsShortcut("USB.app"));
}

TEST_F(MacScriptRunnerTest, AnythingOddInANameKeepsTheScriptFromRunning) {
  for (const std::string& odd : {"a\"b"s, "a\\b"s, "a\0b"s, "a:b"s, "a/b"s, "../b"s, "a\xFF"s}) {
    EXPECT_FALSE(run(shortcutFor(odd))) << testing::PrintToString(odd);
    EXPECT_FALSE(run(RemovalScript{odd})) << testing::PrintToString(odd);
    EXPECT_FALSE(run(AliasScript{odd, "/Volumes/USB"})) << testing::PrintToString(odd);
  }
  EXPECT_THAT(scripts.sources(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(home.desktop()));
}

TEST_F(MacScriptRunnerTest, WhatOneFileSystemTakesApartIsKeptFromOtherValuesToo) {
  for (const std::string& odd : {"a\"b"s, "a\\b"s, "a\0b"s, "a\xFF"s}) {
    EXPECT_FALSE(run(ShortcutScript{odd, "USB", "USB"})) << testing::PrintToString(odd);
    EXPECT_FALSE(run(ShortcutScript{"192.0.2.10", odd, "USB"})) << testing::PrintToString(odd);
    EXPECT_FALSE(run(AliasScript{"USB", "/Volumes/" + odd})) << testing::PrintToString(odd);
  }
  EXPECT_THAT(scripts.sources(), IsEmpty());
}

TEST_F(MacScriptRunnerTest, NothingRunsWhereSomethingStands) {
  std::ofstream(at("File.app")) << "the user's";
  fs::create_directory(at("Folder.app"));
  fs::create_symlink("nowhere", at("Dead.app"));
  for (const std::string label : {"File", "Folder", "Dead"}) {
    EXPECT_FALSE(run(shortcutFor(label))) << label;
    EXPECT_TRUE(fs::exists(fs::symlink_status(at(label + ".app")))) << label;
    EXPECT_FALSE(isRemovedAsShortcut(label + ".app")) << label;
  }
  EXPECT_THAT(scripts.sources(), IsEmpty());
}

TEST_F(MacScriptRunnerTest, WithoutADesktopNothingIsStored) {
  fs::remove(home.desktop());
  EXPECT_FALSE(run(shortcutFor("USB")));
  fs::create_directory(home.desktop());
  fakes::FakeSystem system;
  system.loseFolders();
  EXPECT_FALSE(run(shortcutFor("USB")));
  EXPECT_THAT(scripts.sources(), IsEmpty());
}

TEST_F(MacScriptRunnerTest, AFinderThatRefusesFailsTheScript) {
  scripts.refuse(-1743, "Not authorized to send Apple events to Finder.");
  EXPECT_FALSE(run(shortcutFor("USB")));
  EXPECT_FALSE(run(RemovalScript{"USB.app"}));
  EXPECT_FALSE(run(AliasScript{"USB", "/Volumes/USB"}));
  EXPECT_TRUE(fs::is_empty(home.desktop()));
  EXPECT_EQ(scripts.sources().size(), 3U);
}

TEST_F(MacScriptRunnerTest, AScriptThatStoresNothingHasNotRun) {
  scripts.setDesktop("");
  EXPECT_FALSE(run(shortcutFor("USB")));
  EXPECT_EQ(scripts.sources().size(), 1U);
}

using MacScriptRunnerDeathTest = MacScriptRunnerTest;

TEST_F(MacScriptRunnerDeathTest, WhatCannotBeMarkedIsTakenAway) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        EXPECT_TRUE(test::refuse({__NR_fsetxattr, {}}, ENOTSUP));
        EXPECT_FALSE(run(shortcutFor("USB")));
        EXPECT_EQ(scripts.sources().size(), 1U);
        EXPECT_TRUE(fs::is_empty(home.desktop()));
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ravelin::platform
