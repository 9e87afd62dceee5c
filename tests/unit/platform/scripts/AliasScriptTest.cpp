#include "platform/scripts/AliasScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/Service.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/TemporaryHome.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

std::string sourceWith(const std::string& name, const std::string& path) {
  return "try\n"
         "set desktopFolder to (path to desktop folder as Unicode text)\n"
         "set myFile to desktopFolder & \"" +
         name +
         "\"\n"
         "tell application \"Finder\"\n"
         "if exists myFile then\n"
         "delete myFile\n"
         "end if\n"
         "if not (exists myFile) then\n"
         "set aliasFile to make new alias file at desktop to alias POSIX file \"" +
         path +
         "\"\n"
         "set the name of aliasFile to \"" +
         name +
         "\"\n"
         "end if\n"
         "end tell\n"
         "on error errMsg number errNum\n"
         "tell application \"Finder\"\n"
         "if exists myFile then\n"
         "delete myFile\n"
         "end if\n"
         "if not (exists myFile) then\n"
         "set aliasFile to make new alias file at desktop to POSIX file \"" +
         path +
         "\"\n"
         "set the name of aliasFile to \"" +
         name +
         "\"\n"
         "end if\n"
         "end tell\n"
         "end try";
}

TEST(AliasScriptTest, MakesAnAliasUnderTheNameInTwoAttempts) {
  const AliasScript script{.aliasName = "USB Disk", .volumePath = "/media/USB Disk"};
  EXPECT_EQ(script.source(), sourceWith("USB Disk", "/media/USB Disk"));
  EXPECT_THAT(script.insertedValues(), testing::ElementsAre("USB Disk", "/media/USB Disk"));
}

TEST(AliasScriptTest, ValuesStandAsTheyAreAndAbsentOnesAsNull) {
  const AliasScript script{.aliasName = "a\"b\\%@\n", .volumePath = std::nullopt};
  EXPECT_EQ(script.source(), sourceWith("a\"b\\%@\n", "(null)"));
  EXPECT_THAT(script.insertedValues(), testing::ElementsAre("a\"b\\%@\n", "(null)"));
}

/// Runs the script on a desktop of its own.
class AliasScriptRunTest : public testing::Test {
 protected:
  AliasScriptRunTest() {
    fs::create_directories(_volume);
    std::ofstream(_volume + "/file") << "content";
  }

  static bool run(const Text& name, const Text& path) {
    return service<ScriptRunner>().run(AliasScript{.aliasName = name, .volumePath = path});
  }

  const test::TemporaryHome _home;
  const std::string _volume = _home.path() + "/media/USB Disk";
  const std::string _item = _home.desktop() + "/USB Disk";
};

TEST_F(AliasScriptRunTest, TheAliasLeadsToTheVolume) {
  EXPECT_TRUE(run("USB Disk", _volume));
  EXPECT_EQ(fs::read_symlink(_item), _volume);
  EXPECT_TRUE(fs::exists(_item + "/file"));
}

TEST_F(AliasScriptRunTest, AnItemOfThisNameGoesToTheTrash) {
  std::ofstream(_item) << "old";
  EXPECT_TRUE(run("USB Disk", _volume));
  EXPECT_EQ(fs::read_symlink(_item), _volume);
  EXPECT_TRUE(fs::is_regular_file(_home.trash() + "/USB Disk"));
  fs::remove(_item);
  fs::remove_all(fs::path(_home.trash()).parent_path());
  fs::create_directories(_item + "/inside");
  EXPECT_TRUE(run("USB Disk", _volume));
  EXPECT_EQ(fs::read_symlink(_item), _volume);
  EXPECT_TRUE(fs::is_directory(_home.trash() + "/USB Disk/inside"));
  fs::create_directories(_home.path() + "/media/other");
  EXPECT_TRUE(run("USB Disk", _home.path() + "/media/other"));
  EXPECT_EQ(fs::read_symlink(_item), _home.path() + "/media/other");
  EXPECT_TRUE(fs::exists(_volume + "/file"));
}

TEST_F(AliasScriptRunTest, AnItemThatCannotGoToTheTrashStays) {
  std::ofstream(_home.path() + "/data") << "in the place of the trash";
  std::ofstream(_item) << "old";
  EXPECT_FALSE(run("USB Disk", _volume));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(_item)));
}

TEST_F(AliasScriptRunTest, AVolumeThatIsNotThereHasNoAlias) {
  for (const std::string& path : {_home.path() + "/nothing", _volume + "/file/x", std::string(),
                                  std::string("media"), _home.path() + std::string(9000, 'x')}) {
    EXPECT_FALSE(run("USB Disk", path)) << path;
  }
  EXPECT_FALSE(run("USB Disk", std::nullopt));
  EXPECT_TRUE(fs::is_empty(_home.desktop()));
}

TEST_F(AliasScriptRunTest, AVolumeThatDoesNotAnswerHasAnAliasNevertheless) {
  // It cannot be told whether it is there, as with one whose server is silent.
  for (const auto& folder : {fs::path(_home.path()), fs::path(_home.desktop())}) {
    fs::permissions(folder, fs::perms::all);
  }
  fs::permissions(_home.path() + "/media", fs::perms::none);
  constexpr ::uid_t NOBODY = 65534;
  const ::uid_t user = ::geteuid();
  if (user == 0) {
    ASSERT_EQ(::seteuid(NOBODY), 0);
  }
  EXPECT_TRUE(run("USB Disk", _volume));
  ASSERT_EQ(::seteuid(user), 0);
  fs::permissions(_home.path() + "/media", fs::perms::owner_all);
  EXPECT_EQ(fs::read_symlink(_item), _volume);
}

TEST_F(AliasScriptRunTest, QuotesAndBackslashesRunNothing) {
  for (const std::string text : {"a\"b", "a\\b"}) {
    fs::create_directories(_home.path() + "/" + text);
    EXPECT_FALSE(run(text, _volume));
    EXPECT_FALSE(run("USB Disk", _home.path() + "/" + text));
  }
  EXPECT_TRUE(fs::is_empty(_home.desktop()));
}

TEST_F(AliasScriptRunTest, NoNameLeadsOutOfTheDesktop) {
  fs::create_directory_symlink(_home.path() + "/media", _home.desktop() + "/link");
  for (const char* name : {"../x", "..", ".", "", "link/x", "../Desktop/x", "missing/x"}) {
    EXPECT_FALSE(run(name, _volume)) << name;
  }
  EXPECT_FALSE(run(std::string("a\0b", 3), _volume));
  EXPECT_FALSE(run("x", _volume + std::string("\0b", 2)));
  EXPECT_FALSE(fs::exists(_home.path() + "/x"));
  EXPECT_FALSE(fs::exists(_home.path() + "/media/x"));
}

}  // namespace
}  // namespace ravelin::platform
