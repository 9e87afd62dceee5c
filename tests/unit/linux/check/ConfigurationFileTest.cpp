#include "check/ConfigurationFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/TemporaryHome.h"
#include "support/linux/CheckedFile.h"

namespace ravelin::check {
namespace {

namespace fs = std::filesystem;

using test::codesOf;
using test::propertyList;
using test::TemporaryHome;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string GOOD = propertyList(
    "<dict><key>MulticastAddresses</key><array><array><string>239.255.77.1</string>"
    "<integer>5077</integer></array></array><key>JoinIGMP</key><true/>"
    "<key>IGMPMembershipRefreshRate</key><integer>60</integer></dict>");

class ConfigurationFileTest : public testing::Test {
 protected:
  static void write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << content;
  }

  [[nodiscard]] std::string faultOf(const std::string& content) const {
    write(user, content);
    return ConfigurationFile::at(user).fault;
  }

  const TemporaryHome home;
  const std::string user = home.userSupport() + "/Ravelin Disk Config.plist";
  const std::string machine = home.machineWideSupport() + "/Ravelin Disk Config.plist";
};

TEST_F(ConfigurationFileTest, WhyAFileIsOfNoUse) {
  EXPECT_EQ(faultOf(GOOD), "");
  EXPECT_EQ(faultOf(""), "it is empty");
  EXPECT_EQ(faultOf(" \n"), "it is empty");
  EXPECT_EQ(faultOf("[MulticastAddresses]\n239.255.77.1=5077\n"), "it is no property list at all");
  EXPECT_EQ(faultOf(propertyList("<array/>")),
            "it is a property list, but there is no dictionary at its top");
  EXPECT_EQ(faultOf("<plist version=\"1.0\">\n<dict>\n<key>a</key>\n<interger>1</interger>\n"
                    "</dict>\n</plist>\n"),
            "it is no property list from line 4 on");
  EXPECT_EQ(faultOf("<plist version=\"1.0\">\n<dict>\n<key>a</key>\n<array>\n</dict>\n</plist>\n"),
            "it is no property list from line 5 on");
  EXPECT_EQ(faultOf("<plist version=\"1.0\">\n<dict>\n"),
            "it ends before everything in it is closed, or has nothing in it");
  EXPECT_EQ(faultOf("bplist00 and so on"),
            "it begins as a binary property list, but is damaged or too large");
  EXPECT_EQ(faultOf(std::string(1024 * 1024 + 1, ' ')), "it has more than 1048576 bytes");
  EXPECT_EQ(faultOf(propertyList("<string>&nothing;</string>")),
            "it holds a value that cannot be read");
}

TEST_F(ConfigurationFileTest, AFolderInItsPlaceCannotBeRead) {
  fs::create_directories(user);
  EXPECT_EQ(ConfigurationFile::at(user).fault, "it cannot be read: Is a directory");
  EXPECT_THAT(codesOf(ConfigurationFile::at(user).findings()), ElementsAre("wrong file-unusable"));
}

TEST_F(ConfigurationFileTest, AFileThatIsNotThere) {
  EXPECT_THAT(codesOf(ConfigurationFile::at(user).findings()), ElementsAre("wrong file-missing"));
}

TEST_F(ConfigurationFileTest, TheUsersFileGoesFirst) {
  write(user, GOOD);
  write(machine, GOOD);
  const auto files = ConfigurationFiles::find();
  ASSERT_NE(files.inForce, nullptr);
  EXPECT_EQ(files.inForce->path, user);
  EXPECT_THAT(codesOf(files.findings()),
              ElementsAre("ok file-in-force", "note file-not-used", "ok server"));
}

TEST_F(ConfigurationFileTest, TheUsersFileGivesWayWhenItIsOfNoUse) {
  write(machine, GOOD);
  for (const std::string& content : {std::string("no list"), propertyList("<dict/>")}) {
    write(user, content);
    const auto files = ConfigurationFiles::find();
    ASSERT_NE(files.inForce, nullptr);
    EXPECT_EQ(files.inForce->path, machine);
    EXPECT_EQ(files.findings().front().level, Level::wrong);
  }
  fs::remove(user);
  EXPECT_THAT(codesOf(ConfigurationFiles::find().findings()),
              ElementsAre("note file-not-there", "ok file-in-force", "ok server"));
}

TEST_F(ConfigurationFileTest, WithoutAnyFileTheAgentListensNowhere) {
  EXPECT_THAT(codesOf(ConfigurationFiles::find().findings()),
              ElementsAre("note file-not-there", "note file-not-there", "wrong no-configuration"));
}

TEST_F(ConfigurationFileTest, NothingIsCreated) {
  static_cast<void>(ConfigurationFiles::find());
  EXPECT_FALSE(fs::exists(home.userSupport()));
  EXPECT_FALSE(fs::exists(home.machineWideSupport()));
}

TEST_F(ConfigurationFileTest, AFileInAFolderWhereTheAgentDoesNotLook) {
  const std::string further = home.path() + "/further";
  const test::EnvironmentVariable folders("XDG_DATA_DIRS", home.machineWide() + ":" + further);
  write(machine, GOOD);
  write(further + "/RavelinDisk/Ravelin Disk Config.plist", GOOD);
  EXPECT_THAT(codesOf(ConfigurationFiles::find().findings()), Contains("note file-passed-over"));
}

}  // namespace
}  // namespace ravelin::check
