#include "platform/SearchPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "fakes/FakeSystem.h"

namespace ravelin::platform {
namespace {

using Paths = std::vector<std::string>;
using Directory = SearchPathDirectory;
using Domain = SearchPathDomain;

class MacSearchPathsTest : public testing::Test {
 protected:
  MacSearchPathsTest() {
    ::unsetenv("XDG_DATA_HOME");
    ::unsetenv("XDG_DATA_DIRS");
    ::setenv("HOME", "/Users/\xC3\xA4 b", 1);
  }

  fakes::FakeSystem system;
};

TEST_F(MacSearchPathsTest, TheSystemSaysWhereItsFoldersAre) {
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::desktop, Domain::user),
            Paths{"/Users/\xC3\xA4 b/Desktop"});
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::applicationSupport, Domain::user),
            Paths{"/Users/\xC3\xA4 b/Library/Application Support"});
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::applicationSupport, Domain::local),
            Paths{"/Library/Application Support"});
}

TEST_F(MacSearchPathsTest, TheyAreFoundAfresh) {
  EXPECT_FALSE(
      searchPathsForDirectoriesInDomains(Directory::applicationSupport, Domain::local).empty());
  system.setLibrary("/Volumes/Other/Library");
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::applicationSupport, Domain::local),
            Paths{"/Volumes/Other/Library/Application Support"});
}

TEST_F(MacSearchPathsTest, ThereMayBeNone) {
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::desktop, Domain::local), Paths{});
  system.loseFolders();
  EXPECT_EQ(searchPathsForDirectoriesInDomains(Directory::desktop, Domain::user), Paths{});
}

}  // namespace
}  // namespace ravelin::platform
