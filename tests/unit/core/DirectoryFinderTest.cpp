#include "core/DirectoryFinder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/Announcements.h"
#include "support/TemporaryHome.h"

namespace ravelin {
namespace {

using std::filesystem::exists;
using std::filesystem::is_directory;
using test::EnvironmentVariable;
using test::makeDisk;
using test::TemporaryHome;

TEST(DirectoryFinderTest, TheDesktopIsFoundAndNotCreated) {
  const TemporaryHome home;
  EXPECT_EQ(DirectoryFinder::desktopDirectory(), home.desktop());
  std::filesystem::remove(home.desktop());
  EXPECT_EQ(DirectoryFinder::desktopDirectory(), home.desktop());
  EXPECT_FALSE(exists(home.desktop()));
}

TEST(DirectoryFinderTest, TheDesktopIsFoundAfreshEveryTime) {
  const TemporaryHome home;
  ASSERT_EQ(DirectoryFinder::desktopDirectory(), home.desktop());
  std::filesystem::create_directory(home.path() + "/config");
  std::ofstream(home.path() + "/config/user-dirs.dirs") << "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n";
  EXPECT_EQ(DirectoryFinder::desktopDirectory(), home.path() + "/Bureau");
}

TEST(DirectoryFinderTest, TheUsersSupportFolderIsCreatedWithAllItsParents) {
  const TemporaryHome home;
  const EnvironmentVariable data("XDG_DATA_HOME", home.path() + "/not/there/yet");
  const std::string expected = home.path() + "/not/there/yet/RavelinDisk";
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), expected);
  EXPECT_TRUE(is_directory(expected));
}

TEST(DirectoryFinderTest, ASupportFolderThatIsThereKeepsItsContent) {
  const TemporaryHome home;
  std::filesystem::create_directories(home.userSupport());
  std::ofstream(home.userSupport() + "/kept") << "kept";
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), home.userSupport());
  EXPECT_TRUE(exists(home.userSupport() + "/kept"));
}

TEST(DirectoryFinderTest, ASupportFolderThatWasRemovedIsCreatedAgain) {
  const TemporaryHome home;
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), home.userSupport());
  std::filesystem::remove_all(home.path() + "/data");
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), home.userSupport());
  EXPECT_TRUE(is_directory(home.userSupport()));
}

TEST(DirectoryFinderTest, TheMachineWideSupportFolderIsCreated) {
  const TemporaryHome home;
  EXPECT_EQ(DirectoryFinder::LocalApplicationSupportDirectory(), home.machineWideSupport());
  EXPECT_TRUE(is_directory(home.machineWideSupport()));
}

TEST(DirectoryFinderTest, AFolderThatCannotBeCreatedIsAbsent) {
  const TemporaryHome home;
  // Below a file there are no folders, not even for those who may write everywhere.
  std::ofstream(home.path() + "/file") << "";
  const EnvironmentVariable data("XDG_DATA_HOME", home.path() + "/file/data");
  const EnvironmentVariable dataFolders("XDG_DATA_DIRS", home.path() + "/file");
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), std::nullopt);
  EXPECT_EQ(DirectoryFinder::LocalApplicationSupportDirectory(), std::nullopt);
}

TEST(DirectoryFinderTest, ASupportFolderWhosePlaceAFileTakesIsAbsent) {
  const TemporaryHome home;
  std::filesystem::create_directory(home.path() + "/data");
  std::ofstream(home.userSupport()) << "";
  EXPECT_EQ(DirectoryFinder::UserApplicationSupportDirectory(), std::nullopt);
}

TEST(DirectoryFinderTest, ADiskIsMountedUnderItsLabelInTheUsersSupportFolder) {
  const TemporaryHome home;
  EXPECT_EQ(DirectoryFinder::diskMountDirectory("USB"), home.userSupport() + "/USB");
  EXPECT_TRUE(is_directory(home.userSupport()));
  EXPECT_FALSE(exists(home.userSupport() + "/USB"));
}

TEST(DirectoryFinderTest, ALabelStandsInThePathAsItIs) {
  const TemporaryHome home;
  EXPECT_EQ(DirectoryFinder::diskMountDirectory("a/b"), home.userSupport() + "/a/b");
  EXPECT_EQ(DirectoryFinder::diskMountDirectory("/../ %20"), home.userSupport() + "//../ %20");
  EXPECT_EQ(DirectoryFinder::diskMountDirectory(""), home.userSupport() + "/");
  EXPECT_EQ(DirectoryFinder::diskMountDirectory(std::nullopt), home.userSupport() + "/(null)");
}

TEST(DirectoryFinderTest, WithoutASupportFolderThePathBeginsWithAPlaceholder) {
  const TemporaryHome home;
  std::ofstream(home.path() + "/data") << "";
  EXPECT_EQ(DirectoryFinder::diskMountDirectory("USB"), "(null)/USB");
}

}  // namespace
}  // namespace ravelin
