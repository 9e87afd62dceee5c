#include "platform/scripts/ScriptRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Service.h"
#include "support/Shortcuts.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

std::string contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// Everything below a folder, with what tells whether it was touched.
std::map<std::string, std::string> everythingIn(const fs::path& folder) {
  std::map<std::string, std::string> found;
  for (const auto& item : fs::recursive_directory_iterator(folder)) {
    found[item.path()] = item.is_symlink()        ? "-> " + fs::read_symlink(item).string()
                         : item.is_regular_file() ? contents(item.path())
                                                  : "folder";
  }
  return found;
}

/// A home whose desktop folder is not in the usual place, and the system's own script runner.
class ScriptRunnerTest : public testing::Test {
 protected:
  ScriptRunnerTest() {
    fs::create_directories(_desktop);
    fs::create_directories(_home + "/outside");
    fs::create_directories(_home + "/config");
    writeFile(_home + "/outside/victim", "untouched");
    writeFile(_home + "/outside/victim.app", "untouched");
    writeFile(_home + "/config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/My Desk\"\n");
    ::setenv("HOME", _home.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (_home + "/config").c_str(), 1);
  }

  static ShortcutScript shortcut(const Text& label) {
    return {.ipAddress = "192.0.2.10", .encodedLabel = "x", .label = label};
  }

  static bool run(const Script& script) { return service<ScriptRunner>().run(script); }

  /// Runs a script that must fail and must leave the whole home as it is.
  void expectRefusal(const Script& script) const {
    const auto before = everythingIn(_home);
    EXPECT_FALSE(run(script));
    EXPECT_EQ(everythingIn(_home), before);
  }

  std::vector<std::string> onTheDesktop() const {
    std::vector<std::string> names;
    for (const auto& [path, _] : everythingIn(_desktop)) {
      names.push_back(path.substr(_desktop.size() + 1));
    }
    return names;
  }

  const test::TemporaryDirectory _temporary;
  const std::string _home = _temporary.path() + "/home";
  const std::string _desktop = _home + "/My Desk";
};

TEST_F(ScriptRunnerTest, AShortcutIsAFileOfTheDesktopThatLinksToTheShare) {
  const ::mode_t mask = ::umask(077);
  EXPECT_TRUE(run(ShortcutScript{
      .ipAddress = "192.168.1.5", .encodedLabel = "USB%20Disk", .label = "USB Disk"}));
  ::umask(mask);
  EXPECT_THAT(onTheDesktop(), ElementsAre("USB Disk.app"));
  EXPECT_EQ(contents(_desktop + "/USB Disk.app"),
            "# Ravelin Disk shortcut\n"
            "[Desktop Entry]\n"
            "Version=1.0\n"
            "Type=Link\n"
            "Name=USB Disk\n"
            "URL=smb://guest:@192.168.1.5/USB%20Disk\n"
            "Icon=ravelin-disk\n");
  struct stat status{};
  ASSERT_EQ(::stat((_desktop + "/USB Disk.app").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
}

TEST_F(ScriptRunnerTest, AShortcutIsMadeInTheFolderThatIsKnownToBeTheDesktop) {
  fs::create_directory(_home + "/Other Desk");
  EXPECT_TRUE(run(ShortcutScript{.ipAddress = "192.0.2.10",
                                 .encodedLabel = "x",
                                 .label = "x",
                                 .desktop = _home + "/Other Desk"}));
  EXPECT_TRUE(fs::is_regular_file(_home + "/Other Desk/x.app"));
  EXPECT_THAT(onTheDesktop(), IsEmpty());
}

TEST_F(ScriptRunnerTest, AShortcutReplacesTheShortcutThatHasItsName) {
  writeFile(_desktop + "/USB Disk.app", test::shortcutWith(std::string(10'000, 'x')));
  EXPECT_TRUE(run(ShortcutScript{
      .ipAddress = "192.168.1.6", .encodedLabel = "USB%20Disk", .label = "USB Disk"}));
  EXPECT_THAT(onTheDesktop(), ElementsAre("USB Disk.app"));
  EXPECT_EQ(contents(_desktop + "/USB Disk.app"),
            "# Ravelin Disk shortcut\n"
            "[Desktop Entry]\n"
            "Version=1.0\n"
            "Type=Link\n"
            "Name=USB Disk\n"
            "URL=smb://guest:@192.168.1.6/USB%20Disk\n"
            "Icon=ravelin-disk\n");
}

TEST_F(ScriptRunnerTest, AbsentValuesShowAsNull) {
  EXPECT_TRUE(run(ShortcutScript{
      .ipAddress = std::nullopt, .encodedLabel = std::nullopt, .label = std::nullopt}));
  EXPECT_THAT(onTheDesktop(), ElementsAre("(null).app"));
  EXPECT_EQ(contents(_desktop + "/(null).app"),
            "# Ravelin Disk shortcut\n"
            "[Desktop Entry]\n"
            "Version=1.0\n"
            "Type=Link\n"
            "Name=(null)\n"
            "URL=smb://guest:@(null)/(null)\n"
            "Icon=ravelin-disk\n");
}

TEST_F(ScriptRunnerTest, AnEmptyLabelMakesAShortcutWithoutAName) {
  EXPECT_TRUE(run(shortcut("")));
  EXPECT_THAT(onTheDesktop(), ElementsAre(".app"));
}

TEST_F(ScriptRunnerTest, RemovalRemovesTheNamedFileAlone) {
  ASSERT_TRUE(run(shortcut("one")));
  ASSERT_TRUE(run(shortcut("two")));
  EXPECT_TRUE(run(RemovalScript{.fileName = "one.app"}));
  EXPECT_THAT(onTheDesktop(), ElementsAre("two.app"));
}

TEST_F(ScriptRunnerTest, RemovalOfWhatIsNotThereSucceeds) {
  ASSERT_TRUE(run(shortcut("two")));
  EXPECT_TRUE(run(RemovalScript{.fileName = "one.app"}));
  EXPECT_THAT(onTheDesktop(), ElementsAre("two.app"));
}

TEST_F(ScriptRunnerTest, RemovalNeverRemovesAFolder) {
  fs::create_directory(_desktop + "/one.app");
  expectRefusal(RemovalScript{.fileName = "one.app"});
}

TEST_F(ScriptRunnerTest, NeitherReplacesNorRemovesWhatIsNoShortcut) {
  const std::string ours = test::shortcutWith("");
  writeFile(_home + "/outside/shortcut", ours);
  for (const std::string& text :
       {std::string(), std::string("the user's"), " " + ours, "\n" + ours, ours.substr(1),
        ours.substr(0, ours.size() - 2), std::string("# Ravelin Disk shortcuts\n"),
        std::string("# Ravelin Disk shortcut\r\n"),
        std::string("# Ravelin Disk shortcut\0\n", 25)}) {
    SCOPED_TRACE(text);
    writeFile(_desktop + "/one.app", text);
    expectRefusal(shortcut("one"));
    expectRefusal(RemovalScript{.fileName = "one.app"});
  }
  fs::remove(_desktop + "/one.app");
  fs::create_symlink(_home + "/outside/shortcut", _desktop + "/one.app");
  expectRefusal(shortcut("one"));
  expectRefusal(RemovalScript{.fileName = "one.app"});
}

TEST_F(ScriptRunnerTest, NothingIsRemovedOutsideTheDesktop) {
  fs::create_directory_symlink(_home + "/outside", _desktop + "/link");
  const auto before = everythingIn(_home);
  for (const std::string& fileName :
       {std::string("../outside/victim"), std::string("link/victim"), _home + "/outside/victim",
        std::string(".."), std::string("."), std::string(),
        std::string("link/../../outside/victim"), std::string(60'000, 'x')}) {
    run(RemovalScript{.fileName = fileName});
    EXPECT_EQ(everythingIn(_home), before) << fileName;
  }
}

TEST_F(ScriptRunnerTest, ALabelWithASlashWorksWhereTheFolderExistsBeneathTheDesktop) {
  expectRefusal(shortcut("/etc/x"));
  expectRefusal(shortcut("etc/x"));
  fs::create_directory(_desktop + "/etc");
  EXPECT_TRUE(run(shortcut("/etc/x")));
  EXPECT_THAT(onTheDesktop(), ElementsAre("etc", "etc/x.app"));
  EXPECT_FALSE(fs::exists("/etc/x.app"));
}

TEST_F(ScriptRunnerTest, NoLabelLeadsOutOfTheDesktop) {
  fs::create_directory(_desktop + "/etc");
  for (const char* label :
       {"../x", "../../x", "../outside/victim", "etc/../../outside/victim", "..//outside/victim",
        "./../outside/victim", "/../outside/victim", "../My Desk/x"}) {
    SCOPED_TRACE(label);
    expectRefusal(shortcut(label));
  }
}

TEST_F(ScriptRunnerTest, NoLabelLeadsThroughALink) {
  fs::create_directory_symlink(_home + "/outside", _desktop + "/link");
  fs::create_directory_symlink(_desktop, _desktop + "/self");
  expectRefusal(shortcut("link/victim"));
  expectRefusal(shortcut("link/new"));
  expectRefusal(shortcut("self/new"));
}

TEST_F(ScriptRunnerTest, ALinkInTheShortcutsPlaceIsNotFollowed) {
  fs::create_symlink(_home + "/outside/victim", _desktop + "/x.app");
  run(shortcut("x"));
  EXPECT_EQ(contents(_home + "/outside/victim"), "untouched");
}

TEST_F(ScriptRunnerTest, TheDesktopItselfMayBeALink) {
  fs::remove(_desktop);
  fs::create_directory(_home + "/elsewhere");
  fs::create_directory_symlink(_home + "/elsewhere", _desktop);
  EXPECT_TRUE(run(shortcut("x")));
  EXPECT_TRUE(fs::is_regular_file(_home + "/elsewhere/x.app"));
  EXPECT_TRUE(run(RemovalScript{.fileName = "x.app"}));
  EXPECT_THAT(everythingIn(_home + "/elsewhere"), IsEmpty());
}

TEST_F(ScriptRunnerTest, AFolderInTheShortcutsPlaceStays) {
  fs::create_directory(_desktop + "/x.app");
  writeFile(_desktop + "/x.app/inside", "untouched");
  expectRefusal(shortcut("x"));
}

TEST_F(ScriptRunnerTest, WithoutADesktopFolderScriptsFail) {
  fs::remove(_desktop);
  expectRefusal(shortcut("x"));
}

TEST_F(ScriptRunnerTest, ATextWithANulFails) {
  const std::string nul("a\0b", 3);
  expectRefusal(shortcut(nul));
  expectRefusal(ShortcutScript{.ipAddress = nul, .encodedLabel = "x", .label = "x"});
  expectRefusal(ShortcutScript{.ipAddress = "192.0.2.10", .encodedLabel = nul, .label = "x"});
  writeFile(_desktop + "/a", "untouched");
  expectRefusal(RemovalScript{.fileName = nul});
}

TEST_F(ScriptRunnerTest, QuotesAndBackslashesRunNothing) {
  writeFile(_desktop + "/a\"b", "untouched");
  writeFile(_desktop + "/a\\b", "untouched");
  for (const char* text : {"a\"b", "a\\b", "\"", "\\", "a\\nb"}) {
    SCOPED_TRACE(text);
    expectRefusal(shortcut(text));
    expectRefusal(ShortcutScript{.ipAddress = text, .encodedLabel = "x", .label = "x"});
    expectRefusal(ShortcutScript{.ipAddress = "192.0.2.10", .encodedLabel = text, .label = "x"});
    expectRefusal(RemovalScript{.fileName = text});
  }
}

TEST_F(ScriptRunnerTest, ALabelWithLineFeedsStaysOneLine) {
  const std::string label = "a\nExec=evil\n[x]\r";
  EXPECT_TRUE(run(ShortcutScript{.ipAddress = "1.2.3.4\nExec=evil",
                                 .encodedLabel = "a%0AExec=evil%0A[x]%0D",
                                 .label = label}));
  EXPECT_THAT(onTheDesktop(), ElementsAre(label + ".app"));
  EXPECT_EQ(contents(_desktop + "/" + label + ".app"),
            "# Ravelin Disk shortcut\n"
            "[Desktop Entry]\n"
            "Version=1.0\n"
            "Type=Link\n"
            "Name=a\\nExec=evil\\n[x]\\r\n"
            "URL=smb://guest:@1.2.3.4\\nExec=evil/a%0AExec=evil%0A[x]%0D\n"
            "Icon=ravelin-disk\n");
  EXPECT_TRUE(run(RemovalScript{.fileName = label + ".app"}));
  EXPECT_THAT(onTheDesktop(), IsEmpty());
}

TEST_F(ScriptRunnerTest, ALabelThatIsTooLongForAFileNameFails) {
  expectRefusal(shortcut(std::string(60'000, 'x')));
  expectRefusal(shortcut(std::string(256, 'x')));
  EXPECT_TRUE(run(shortcut(std::string(200, 'x'))));
}

/// A runner that notes the source of what it is given to execute.
class NotingScriptRunner final : public ScriptRunner {
 public:
  explicit NotingScriptRunner(bool outcome) : _outcome(outcome) {}
  std::vector<std::string> _sources;

 private:
  bool _execute(const Script& script) override {
    _sources.push_back(std::visit([](const auto& kind) { return kind.source(); }, script));
    return _outcome;
  }
  bool _outcome;
};

TEST(AnyScriptRunnerTest, ExecutesAScriptAndPassesOnTheOutcome) {
  const RemovalScript script{.fileName = "x.app"};
  NotingScriptRunner succeeding(true);
  EXPECT_TRUE(succeeding.run(script));
  NotingScriptRunner failing(false);
  EXPECT_FALSE(failing.run(script));
  EXPECT_THAT(failing._sources, ElementsAre(script.source()));
}

TEST(AnyScriptRunnerTest, NeverExecutesAScriptThatWouldBeAnother) {
  NotingScriptRunner runner(true);
  for (const char* text : {"a\" & (do shell script \"x", "a\\"}) {
    EXPECT_FALSE(runner.run(ShortcutScript{.ipAddress = text, .encodedLabel = "x", .label = "x"}));
    EXPECT_FALSE(runner.run(ShortcutScript{.ipAddress = "x", .encodedLabel = text, .label = "x"}));
    EXPECT_FALSE(runner.run(ShortcutScript{.ipAddress = "x", .encodedLabel = "x", .label = text}));
    EXPECT_FALSE(runner.run(RemovalScript{.fileName = text}));
  }
  EXPECT_THAT(runner._sources, IsEmpty());
}

}  // namespace
}  // namespace ravelin::platform
