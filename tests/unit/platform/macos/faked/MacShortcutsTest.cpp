#include "platform/macos/MacShortcuts.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fakes/FakeScripts.h"
#include "fakes/SystemAdditions.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/StepwiseAccess.h"
#include "support/TemporaryHome.h"
#include "support/linux/Seccomp.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

class MacShortcutsTest : public testing::Test {
 protected:
  void write(const std::string& path) const {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << "content";
  }

  [[nodiscard]] std::string at(const std::string& name) const {
    return home.desktop() + "/" + name;
  }

  /// A folder as a stored script becomes one, without a mark.
  void makeBundle(const std::string& name) const {
    write(at(name) + "/Contents/Resources/Scripts/main.scpt");
    write(at(name) + "/Icon\r");
  }

  [[nodiscard]] bool isShortcut(const std::string& name) const {
    FoundItem item = access.find(folder.number(), name);
    return item.error == 0 && shortcuts.isShortcut(folder.number(), name, item);
  }

  static std::string reason(const std::optional<FileError>& error) {
    return error ? error->localizedDescription : "";
  }

  std::string remove(const std::string& name) {
    return reason(files.removeShortcutAtPath(at(name), home.desktop()));
  }

  std::string makeWay(const std::string& name) {
    return reason(files.makeWayAtPath(at(name), home.desktop()));
  }

  test::TemporaryHome home;
  const StepwiseAccess access;
  const MacShortcuts shortcuts{access};
  const Descriptor folder{::open(home.desktop().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  FileManager& files = native<FileManager>();
};

TEST_F(MacShortcutsTest, TheMarkIsAnAttributeOfAFileOrAFolder) {
  makeBundle("Folder.app");
  write(at("File.app"));
  for (const std::string name : {"Folder.app", "File.app"}) {
    EXPECT_FALSE(isShortcut(name)) << name;
    EXPECT_EQ(shortcuts.mark(folder.number(), name), 0) << name;
    EXPECT_TRUE(isShortcut(name)) << name;
    const Descriptor opened(::open(at(name).c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(::fgetxattr(opened.number(), "net.ravelin-disk.shortcut", nullptr, 0, 0, 0), 0);
  }
}

TEST_F(MacShortcutsTest, OtherAttributesAreNoMark) {
  makeBundle("Folder.app");
  const Descriptor opened(::open(at("Folder.app").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::fsetxattr(opened.number(), "net.ravelin-disk.other", "", 0, 0, 0), 0);
  EXPECT_FALSE(isShortcut("Folder.app"));
}

TEST_F(MacShortcutsTest, ALinkToAShortcutIsNone) {
  makeBundle("Folder.app");
  ASSERT_EQ(shortcuts.mark(folder.number(), "Folder.app"), 0);
  fs::create_directory_symlink(at("Folder.app"), at("Link.app"));
  EXPECT_FALSE(isShortcut("Link.app"));
  EXPECT_NE(shortcuts.mark(folder.number(), "Link.app"), 0);
  ASSERT_EQ(::mkfifo(at("Fifo.app").c_str(), 0600), 0);
  EXPECT_FALSE(isShortcut("Fifo.app"));
}

TEST_F(MacShortcutsTest, WhatCannotBeMarkedSaysWhy) {
  EXPECT_EQ(shortcuts.mark(folder.number(), "missing"), ENOENT);
}

TEST_F(MacShortcutsTest, ABundleGoesWithItsContentAndNoLinkInItIsFollowed) {
  makeBundle("USB.app");
  write(home.path() + "/Documents/kept");
  fs::create_directory_symlink(home.path() + "/Documents", at("USB.app/Contents/folder"));
  fs::create_symlink(home.path() + "/Documents/kept", at("USB.app/file"));
  ASSERT_EQ(shortcuts.mark(folder.number(), "USB.app"), 0);
  EXPECT_EQ(remove("USB.app"), "");
  EXPECT_TRUE(fs::is_empty(home.desktop()));
  EXPECT_TRUE(fs::exists(home.path() + "/Documents/kept"));
  EXPECT_FALSE(fs::exists(home.trash()));
}

TEST_F(MacShortcutsTest, WhatHasNoMarkIsLeft) {
  makeBundle("USB.app");
  write(at("CARD.app"));
  EXPECT_EQ(remove("USB.app"), "Is a directory");
  EXPECT_EQ(remove("CARD.app"), "It is not a shortcut of Ravelin Disk");
  EXPECT_TRUE(fs::exists(at("USB.app/Icon\r")));
  EXPECT_TRUE(fs::exists(at("CARD.app")));
}

TEST_F(MacShortcutsTest, WhatHasNoMarkMakesWayIntoTheTrash) {
  makeBundle("USB.app");
  write(at("CARD.app"));
  write(home.path() + "/target");
  fs::create_symlink(home.path() + "/target", at("Link.app"));
  makeBundle("Ours.app");
  ASSERT_EQ(shortcuts.mark(folder.number(), "Ours.app"), 0);
  for (const std::string name : {"USB.app", "CARD.app", "Link.app", "Ours.app", "missing.app"}) {
    EXPECT_EQ(makeWay(name), "") << name;
  }
  EXPECT_TRUE(fs::is_empty(home.desktop()));
  EXPECT_TRUE(fs::exists(home.trash() + "/USB.app/Icon\r"));
  EXPECT_TRUE(fs::is_regular_file(home.trash() + "/CARD.app"));
  EXPECT_TRUE(fs::is_symlink(home.trash() + "/Link.app"));
  EXPECT_TRUE(fs::exists(home.path() + "/target"));
  EXPECT_FALSE(fs::exists(home.trash() + "/Ours.app"));
}

TEST_F(MacShortcutsTest, OfALinkToAFolderTheLinkGoesToTheTrash) {
  write(home.path() + "/Documents/kept");
  fs::create_directory_symlink(home.path() + "/Documents", at("USB.app"));
  EXPECT_EQ(makeWay("USB.app"), "");
  EXPECT_TRUE(fs::is_symlink(home.trash() + "/USB.app"));
  EXPECT_TRUE(fs::exists(home.path() + "/Documents/kept"));
}

TEST_F(MacShortcutsTest, ATrashThatRefusesLeavesTheItem) {
  write(home.path() + "/data");  // where the trash would be
  makeBundle("USB.app");
  EXPECT_EQ(makeWay("USB.app"), "Not moved to the trash: It cannot be moved to the trash.");
  EXPECT_TRUE(fs::exists(at("USB.app/Icon\r")));
}

TEST_F(MacShortcutsTest, ATrashThatTakesNothingIsNotBelieved) {
  fakes::FakeScripts scripts;
  scripts.setTrash([](const std::string& /*path*/) { return true; });
  write(at("USB.app"));
  EXPECT_EQ(makeWay("USB.app"), "Not moved to the trash: It is still there");
  EXPECT_TRUE(fs::exists(at("USB.app")));
}

TEST_F(MacShortcutsTest, WhatComesInTheItemsPlaceIsNotTheItem) {
  MacShortcuts moving(access);
  write(at("USB.app"));
  const FoundItem found = access.find(folder.number(), "USB.app");
  const auto place = BeneathResolver(access).resolve(at("USB.app"), home.desktop());
  fakes::FakeScripts scripts;
  scripts.setTrash([this](const std::string& path) {
    fs::rename(path, home.path() + "/taken");
    write(path);
    return true;
  });
  EXPECT_EQ(reason(moving.moveToTrash(place, found)), "");
  EXPECT_TRUE(fs::exists(home.path() + "/taken"));
}

TEST_F(MacShortcutsTest, OnlyTheItemThatWasFoundGoesToTheTrash) {
  MacShortcuts moving(access);
  write(at("USB.app"));
  const FoundItem found = access.find(folder.number(), "USB.app");
  BeneathResolver::Place place = BeneathResolver(access).resolve(at("USB.app"), home.desktop());
  ASSERT_EQ(place.error, 0);
  fs::rename(at("USB.app"), at("elsewhere"));
  EXPECT_THAT(reason(moving.moveToTrash(place, found)), HasSubstr("no longer there"));
  write(at("USB.app"));
  EXPECT_THAT(reason(moving.moveToTrash(place, found)), HasSubstr("no longer there"));
  EXPECT_TRUE(fs::exists(at("USB.app")));
  EXPECT_FALSE(fs::exists(home.trash()));
}

TEST_F(MacShortcutsTest, WhatIsNotUtf8IsNotMovedToTheTrash) {
  write(at("\xFF.app"));
  EXPECT_EQ(makeWay("\xFF.app"), "Not moved to the trash: Its name is not UTF-8");
  EXPECT_TRUE(fs::exists(at("\xFF.app")));
}

TEST_F(MacShortcutsTest, TheFolderMayHaveMovedSinceItWasFound) {
  MacShortcuts moving(access);
  fs::create_directory(at("sub"));
  write(at("sub/USB.app"));
  BeneathResolver::Place place = BeneathResolver(access).resolve(at("sub/USB.app"), home.desktop());
  const FoundItem found = access.find(place.folder.number(), "USB.app");
  fs::rename(at("sub"), at("renamed"));
  write(at("sub/USB.app"));
  EXPECT_EQ(reason(moving.moveToTrash(place, found)), "");
  EXPECT_FALSE(fs::exists(at("renamed/USB.app")));
  EXPECT_TRUE(fs::exists(at("sub/USB.app")));
}

TEST_F(MacShortcutsTest, RenamesOnlyWhereNothingIs) {
  makeBundle("One");
  write(at("Two"));
  EXPECT_EQ(shortcuts.renameIfFree(folder.number(), "One", "Two"), EEXIST);
  EXPECT_TRUE(fs::is_directory(at("One")));
  EXPECT_EQ(shortcuts.renameIfFree(folder.number(), "One", "Three"), 0);
  EXPECT_TRUE(fs::is_directory(at("Three")));
  EXPECT_FALSE(fs::exists(at("One")));
  EXPECT_EQ(shortcuts.renameIfFree(folder.number(), "One", "Four"), ENOENT);
}

using MacShortcutsDeathTest = MacShortcutsTest;

TEST_F(MacShortcutsDeathTest, AFileSystemWithoutTheseWaysOfRenamingSaysSo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        write(at("One"));
        write(at("Two"));
        EXPECT_TRUE(test::refuse({__NR_renameat2, {}}, EINVAL));
        EXPECT_EQ(shortcuts.renameIfFree(folder.number(), "One", "Three"), ENOSYS);
        EXPECT_EQ(shortcuts.exchange(folder.number(), "One", "Two"), ENOSYS);
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(MacShortcutsTest, ExchangesAFileAndAFolder) {
  makeBundle("One");
  write(at("Two"));
  EXPECT_EQ(shortcuts.exchange(folder.number(), "One", "Two"), 0);
  EXPECT_TRUE(fs::is_regular_file(at("One")));
  EXPECT_TRUE(fs::is_directory(at("Two")));
  EXPECT_EQ(shortcuts.exchange(folder.number(), "One", "Three"), ENOENT);
}

}  // namespace
}  // namespace ravelin::platform
