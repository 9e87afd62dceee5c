#include "platform/SearchPaths.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using Paths = std::vector<std::string>;

/// The environment is that of a fresh session, with a home folder of the test's own.
class SearchPathsTest : public testing::Test {
 protected:
  SearchPathsTest() {
    for (const char* const name :
         {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_DESKTOP_DIR"}) {
      ::unsetenv(name);
    }
    set("HOME", _home);
  }

  static void set(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }

  static Paths desktop() {
    return searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop, SearchPathDomain::user);
  }
  static Paths userSupport() {
    return searchPathsForDirectoriesInDomains(SearchPathDirectory::applicationSupport,
                                              SearchPathDomain::user);
  }
  static Paths localSupport() {
    return searchPathsForDirectoriesInDomains(SearchPathDirectory::applicationSupport,
                                              SearchPathDomain::local);
  }

  void configure(std::string_view userDirs) {
    fs::create_directories(_home + "/.config");
    std::ofstream(_home + "/.config/user-dirs.dirs", std::ios::binary) << userDirs;
  }

  /// The desktop folder under this configuration.
  Paths desktopWith(std::string_view userDirs) {
    configure(userDirs);
    return desktop();
  }

  static std::string registeredHome() {
    const passwd* const entry = ::getpwuid(::getuid());
    return entry != nullptr ? entry->pw_dir : "";
  }

  const test::TemporaryDirectory _temporary;
  const std::string _home = _temporary.path() + "/home";
};

TEST_F(SearchPathsTest, UserSupportLiesInTheHomeFolder) {
  EXPECT_EQ(userSupport(), Paths{_home + "/.local/share"});
  EXPECT_FALSE(fs::exists(_home));
}

TEST_F(SearchPathsTest, UserSupportGoesWhereTheUserSays) {
  set("XDG_DATA_HOME", "/some/where/");
  EXPECT_EQ(userSupport(), Paths{"/some/where"});
  set("XDG_DATA_HOME", "relative");
  EXPECT_EQ(userSupport(), Paths{_home + "/.local/share"});
  set("XDG_DATA_HOME", "");
  EXPECT_EQ(userSupport(), Paths{_home + "/.local/share"});
}

TEST_F(SearchPathsTest, WithoutAHomeInTheEnvironmentTheUserDatabaseIsAsked) {
  const std::string home = registeredHome();
  ASSERT_TRUE(home.starts_with('/')) << "this user has no home folder";
  ::unsetenv("HOME");
  EXPECT_EQ(userSupport(), Paths{home + "/.local/share"});
  set("HOME", "relative");
  EXPECT_EQ(userSupport(), Paths{home + "/.local/share"});
  set("HOME", "");
  EXPECT_EQ(userSupport(), Paths{home + "/.local/share"});
}

TEST_F(SearchPathsTest, AUserWithoutAnyHomeHasNoFolders) {
  // Needs the privilege to become a user that no database knows.
  if (::geteuid() != 0) {
    set("XDG_DATA_HOME", "/explicit");
    EXPECT_EQ(userSupport(), Paths{"/explicit"});
    return;
  }
  constexpr uid_t UNKNOWN_USER = 3'999'999'999U;
  EXPECT_EXIT(
      {
        ::unsetenv("HOME");
        const bool isUnknown =
            ::setresuid(UNKNOWN_USER, UNKNOWN_USER, UNKNOWN_USER) == 0 && registeredHome().empty();
        const bool isEmpty = desktop().empty() && userSupport().empty();
        set("XDG_DATA_HOME", "/explicit");
        ::_exit(isUnknown && isEmpty && userSupport() == Paths{"/explicit"} ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(SearchPathsTest, MachineWideSupportIsTheLocalFolderByDefault) {
  Paths byDefault{"/usr/local/share", "/usr/share"};
  // Where an agent is installed that no administrator has configured.
  if (!fs::is_directory("/usr/local/share/RavelinDisk") &&
      fs::is_directory("/usr/share/RavelinDisk")) {
    std::ranges::reverse(byDefault);
  }
  EXPECT_EQ(localSupport(), byDefault);
  set("XDG_DATA_DIRS", "");
  EXPECT_EQ(localSupport(), byDefault);
  set("XDG_DATA_DIRS", "relative::also/relative");
  EXPECT_EQ(localSupport(), byDefault);
}

TEST_F(SearchPathsTest, MachineWideSupportIsTheFirstFolderListed) {
  set("XDG_DATA_DIRS", _home + "/one/:relative::" + _home + "/other");
  EXPECT_EQ(localSupport(), (Paths{_home + "/one", _home + "/other"}));
}

TEST_F(SearchPathsTest, MachineWideSupportIsTheFirstFolderThatHasTheAgents) {
  const std::string one = _home + "/one";
  const std::string other = _home + "/other";
  const std::string third = _home + "/third";
  set("XDG_DATA_DIRS", one + ":" + other + "/:" + third);
  fs::create_directories(third + "/RavelinDisk");
  EXPECT_EQ(localSupport(), (Paths{third, one, other}));
  fs::create_directories(other + "/RavelinDisk");
  EXPECT_EQ(localSupport(), (Paths{other, one, third}));
  fs::create_directory(one);
  EXPECT_EQ(localSupport(), (Paths{other, one, third}));
  fs::create_directory_symlink(third + "/RavelinDisk", one + "/RavelinDisk");
  EXPECT_EQ(localSupport(), (Paths{one, other, third}));
}

TEST_F(SearchPathsTest, AFileIsNotTheAgentsFolder) {
  fs::create_directories(_home + "/one");
  fs::create_directories(_home + "/other/RavelinDisk");
  std::ofstream(_home + "/one/RavelinDisk") << "";
  set("XDG_DATA_DIRS", _home + "/one:" + _home + "/other");
  EXPECT_EQ(localSupport(), (Paths{_home + "/other", _home + "/one"}));
}

TEST_F(SearchPathsTest, TheLocalFolderComesFirstWhereverItIsListed) {
  set("XDG_DATA_DIRS", _home + "/gnome:/usr/local/share/:" + _home + "/share");
  EXPECT_EQ(localSupport(), (Paths{"/usr/local/share", _home + "/gnome", _home + "/share"}));
}

TEST_F(SearchPathsTest, ThereIsNoMachineWideDesktop) {
  EXPECT_EQ(
      searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop, SearchPathDomain::local),
      Paths{});
}

TEST_F(SearchPathsTest, TheDesktopIsInTheHomeFolderByDefault) {
  EXPECT_EQ(desktop(), Paths{_home + "/Desktop"});
  set("HOME", _home + "//");
  EXPECT_EQ(desktop(), Paths{_home + "/Desktop"});
  set("HOME", "/");
  EXPECT_EQ(desktop(), Paths{"/Desktop"});
  EXPECT_FALSE(fs::exists(_home));
}

TEST_F(SearchPathsTest, TheDesktopIsWhereTheUserPutIt) {
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"),
            Paths{_home + "/Schreibtisch"});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/data/desk top/\"\n"), Paths{"/data/desk top"});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"$HOME/B\xC3\xBCro\""), Paths{_home + "/B\xC3\xBCro"});
}

TEST_F(SearchPathsTest, TheDesktopIsFoundAfreshEveryTime) {
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/first\"\n"), Paths{"/first"});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/second\"\n"), Paths{"/second"});
  fs::remove(_home + "/.config/user-dirs.dirs");
  EXPECT_EQ(desktop(), Paths{_home + "/Desktop"});
}

TEST_F(SearchPathsTest, TheHomeFolderItselfCanBeTheDesktop) {
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"$HOME/\"\n"), Paths{_home});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"$HOME\"\n"), Paths{_home});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/\"\n"), Paths{"/"});
  set("HOME", "/");
  fs::create_directories(_home + "/.config");
  set("XDG_CONFIG_HOME", _home + "/.config");
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"$HOME/x\"\n"), Paths{"/x"});
}

TEST_F(SearchPathsTest, ReadsTheFileThatTheSystemWrites) {
  EXPECT_EQ(desktopWith("# This file is written by xdg-user-dirs-update\n"
                        "# XDG_DESKTOP_DIR=\"$HOME/commented\"\n"
                        "\n"
                        "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n"
                        "XDG_DOWNLOAD_DIR=\"$HOME/T\xC3\xA9l\xC3\xA9"
                        "chargements\"\n"),
            Paths{_home + "/Bureau"});
}

TEST_F(SearchPathsTest, TheLastAssignmentWins) {
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/first\"\nXDG_DESKTOP_DIR=\"/last\"\n"), Paths{"/last"});
  EXPECT_EQ(desktopWith("XDG_DESKTOP_DIR=\"/first\"\nXDG_DESKTOP_DIR=nonsense\n"), Paths{"/first"});
}

TEST_F(SearchPathsTest, ResolvesEscapesBlanksAndComments) {
  EXPECT_EQ(desktopWith("  XDG_DESKTOP_DIR = \"/a\\\"b\\\\c\\$d\\`e\"  # mine\r\n"),
            Paths{"/a\"b\\c$d`e"});
  EXPECT_EQ(desktopWith("\tXDG_DESKTOP_DIR=\"/a # b\"\t"), Paths{"/a # b"});
}

TEST_F(SearchPathsTest, IgnoresLinesThatAssignNothing) {
  const Paths byDefault{_home + "/Desktop"};
  for (const std::string& line :
       {std::string("XDG_DESKTOP_DIR=/unquoted"), std::string("XDG_DESKTOP_DIR='/single'"),
        std::string("XDG_DESKTOP_DIR=\"relative\""), std::string("XDG_DESKTOP_DIR=\"\""),
        std::string("XDG_DESKTOP_DIR=\"/open"), std::string(R"(XDG_DESKTOP_DIR="/open\")"),
        std::string("XDG_DESKTOP_DIR=\"$HOMER/x\""), std::string("XDG_DESKTOP_DIR=\"${HOME}/x\""),
        std::string("XDG_DESKTOP_DIR=\"/a\"b"), std::string("XDG_DESKTOP_DIR"),
        std::string("XDG_DESKTOP_DIR="), std::string("XDG_DESKTOP_DIRS=\"/x\""),
        std::string("MY_XDG_DESKTOP_DIR=\"/x\""), std::string("export XDG_DESKTOP_DIR=\"/x\""),
        std::string("XDG_DESKTOP_DIR=\"/a\0b\"", 22), std::string("\0", 1), std::string()}) {
    EXPECT_EQ(desktopWith(line), byDefault) << line;
    EXPECT_EQ(desktopWith(line + "\n\n"), byDefault) << line;
  }
}

TEST_F(SearchPathsTest, LooksForTheConfigurationWhereTheUserKeepsIt) {
  const std::string elsewhere = _temporary.path() + "/elsewhere";
  fs::create_directory(elsewhere);
  std::ofstream(elsewhere + "/user-dirs.dirs") << "XDG_DESKTOP_DIR=\"$HOME/There\"\n";
  configure("XDG_DESKTOP_DIR=\"$HOME/Here\"\n");
  set("XDG_CONFIG_HOME", elsewhere + "/");
  EXPECT_EQ(desktop(), Paths{_home + "/There"});
  set("XDG_CONFIG_HOME", "relative");
  EXPECT_EQ(desktop(), Paths{_home + "/Here"});
}

TEST_F(SearchPathsTest, AConfigurationThatCannotBeReadIsNone) {
  fs::create_directories(_home + "/.config");
  ASSERT_EQ(::mkfifo((_home + "/.config/user-dirs.dirs").c_str(), 0600), 0);
  EXPECT_EQ(desktop(), Paths{_home + "/Desktop"});
  fs::remove(_home + "/.config/user-dirs.dirs");
  fs::create_directory(_home + "/.config/user-dirs.dirs");
  EXPECT_EQ(desktop(), Paths{_home + "/Desktop"});
}

}  // namespace
}  // namespace ravelin::platform
