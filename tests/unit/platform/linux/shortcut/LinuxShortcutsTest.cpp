#include "platform/linux/shortcut/LinuxShortcuts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "platform/linux/LinuxFolderAccess.h"
#include "platform/posix/ShortcutFiles.h"
#include "support/Shortcuts.h"
#include "support/TemporaryHome.h"
#include "support/linux/OwnMounts.h"
#include "support/linux/WithheldCall.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;
using test::shortcutWith;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void put(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// What is done to a desktop by the shortcuts of this system.
class LinuxShortcutsTest : public testing::Test {
 protected:
  static std::string reason(const std::optional<FileError>& error) {
    return error ? error->localizedDescription : "";
  }

  [[nodiscard]] std::string onDesktop(const std::string& name) const {
    return _home.desktop() + "/" + name;
  }

  [[nodiscard]] BeneathResolver::Place place(const std::string& name = "x.app") const {
    return _resolver.resolve(onDesktop(name), _home.desktop());
  }

  std::string remove() { return reason(_files.remove(place())); }
  std::string makeWay() { return reason(_files.makeWay(place())); }
  std::string store(const std::string& text) {
    return reason(_files.store(place(), shortcutWith(text)));
  }

  [[nodiscard]] std::size_t count() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(_home.desktop()), fs::directory_iterator()));
  }

  /// How many files of the desktop have the content.
  [[nodiscard]] std::size_t countOf(const std::string& content) const {
    std::size_t found = 0;
    for (const auto& entry : fs::directory_iterator(_home.desktop())) {
      found += contentOf(entry.path()) == content ? 1U : 0U;
    }
    return found;
  }

  const test::TemporaryHome _home;
  const std::string _path = _home.desktop() + "/x.app";
  const LinuxFolderAccess _access;
  const BeneathResolver _resolver{_access};
  LinuxShortcuts _shortcuts{_access};
  ShortcutFiles _files{_access, _shortcuts};
};

TEST_F(LinuxShortcutsTest, AShortcutIsStoredReplacedAndRemovedWithoutATrace) {
  EXPECT_EQ(store("one"), "");
  EXPECT_EQ(store("two"), "");
  EXPECT_EQ(contentOf(_path), shortcutWith("two"));
  EXPECT_EQ(count(), 1U);
  EXPECT_EQ(remove(), "");
  EXPECT_EQ(store("three"), "");
  EXPECT_EQ(makeWay(), "");
  EXPECT_EQ(count(), 0U);
  EXPECT_FALSE(fs::exists(_home.trash()));
  EXPECT_EQ(remove(), "No such file or directory");
  EXPECT_EQ(makeWay(), "");
}

TEST_F(LinuxShortcutsTest, AFileIsReadAnewEachTimeItIsLookedAt) {
  ASSERT_EQ(store("old"), "");
  const BeneathResolver::Place found = place();
  const int folder = found.folder.number();
  FoundItem item = _access.find(folder, found.name);
  EXPECT_TRUE(_shortcuts.isShortcut(folder, found.name, item));
  // Under another name, too.
  fs::rename(_path, onDesktop("y.app"));
  EXPECT_TRUE(_shortcuts.isShortcut(folder, "y.app", item));
  put(onDesktop("y.app"), "the user's");
  EXPECT_FALSE(_shortcuts.isShortcut(folder, "y.app", item));
}

TEST_F(LinuxShortcutsTest, EveryKindOfThingGoesToTheTrash) {
  const std::string target = _home.path() + "/target";
  put(target, shortcutWith("a link to it is not it"));
  const auto expectMoved = [&](const std::string& name) {
    EXPECT_NE(remove(), "") << name;
    EXPECT_NE(store("x"), "") << name;
    EXPECT_EQ(makeWay(), "") << name;
    EXPECT_EQ(count(), 0U) << name;
    EXPECT_TRUE(fs::exists(fs::symlink_status(_home.trash() + "/x.app"))) << name;
    fs::rename(_home.trash() + "/x.app", _home.path() + "/" + name);
    fs::remove_all(fs::path(_home.trash()).parent_path());
  };
  put(_path, "the user's");
  expectMoved("file");
  put(_path, "");
  expectMoved("empty");
  fs::create_symlink(target, _path);
  expectMoved("link");
  fs::create_symlink(target + "/nowhere", _path);
  expectMoved("dead");
  ASSERT_EQ(::mkfifo(_path.c_str(), 0600), 0);
  expectMoved("pipe");
  fs::create_directories(_path + "/below");
  expectMoved("folder");
  fs::create_directory_symlink(_home.path(), _path);
  expectMoved("link to a folder");
  EXPECT_EQ(contentOf(_home.path() + "/file"), "the user's");
  EXPECT_EQ(fs::read_symlink(_home.path() + "/link"), target);
  EXPECT_TRUE(fs::is_fifo(_home.path() + "/pipe"));
  EXPECT_TRUE(fs::is_directory(_home.path() + "/folder/below"));
  EXPECT_EQ(contentOf(target), shortcutWith("a link to it is not it"));
}

TEST_F(LinuxShortcutsTest, TheTrashKnowsWhereAThingWas) {
  put(_path, "the user's");
  EXPECT_EQ(makeWay(), "");
  EXPECT_NE(contentOf(fs::path(_home.trash()).parent_path() / "info/x.app.trashinfo")
                .find("\nPath=" + _path + "\n"),
            std::string::npos);
}

TEST_F(LinuxShortcutsTest, TheTrashTakesWhatHasANameForWhichThereIsOneAlready) {
  for (const char* const text : {"first", "second", "third"}) {
    put(_path, text);
    EXPECT_EQ(makeWay(), "");
  }
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(_home.trash())) {
    found.push_back(contentOf(entry.path()));
  }
  std::ranges::sort(found);
  EXPECT_EQ(found, (std::vector<std::string>{"first", "second", "third"}));
}

TEST_F(LinuxShortcutsTest, ThingsInFoldersBeneathTheDesktopGoToTheTrashToo) {
  fs::create_directory(onDesktop("inner"));
  put(onDesktop("inner/x.app"), "the user's");
  EXPECT_EQ(reason(_files.makeWay(place("inner/x.app"))), "");
  EXPECT_EQ(contentOf(_home.trash() + "/x.app"), "the user's");
}

TEST_F(LinuxShortcutsTest, AShortcutIsRemovedFromAFullFileSystem) {
  EXPECT_EXIT(
      {
        const std::string folder = _home.desktop();
        // Inodes for the folder and one file.
        bool isRight = test::ownMounts() &&
                       ::mount("none", folder.c_str(), "tmpfs", 0, "nr_inodes=2,size=4096") == 0;
        isRight = isRight && store("x").empty() && store("y") == "No space left on device" &&
                  contentOf(_path) == shortcutWith("x") && remove().empty() && count() == 0;
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(LinuxShortcutsTest, WhatLiesWhereThereIsNoTrashStays) {
  EXPECT_EXIT(
      {
        bool isRight = test::ownMounts() && test::mountMemory(_home.desktop());
        put(_path, "the user's");
        const std::string why = makeWay();
        isRight = isRight && why.starts_with("Not moved to the trash: ") && !store("x").empty() &&
                  contentOf(_path) == "the user's" && count() == 1 && !fs::exists(_home.trash());
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(LinuxShortcutsTest, InAFolderThatMayNotBeWrittenToEverythingStays) {
  ASSERT_EQ(store("old"), "");
  EXPECT_EXIT(
      {
        const std::string folder = _home.desktop();
        const bool isReady =
            test::ownMounts() &&
            ::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
            ::mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) ==
                0;
        const bool isRight = isReady && remove() == "Read-only file system" &&
                             makeWay() == "Read-only file system" &&
                             store("new") == "Read-only file system";
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
  EXPECT_EQ(contentOf(_path), shortcutWith("old"));
  EXPECT_EQ(count(), 1U);
}

TEST_F(LinuxShortcutsTest, WhatIsMountedInAShortcutsPlaceIsLeftAloneAndNotAskedAnything) {
  fs::create_directory(_path);
  EXPECT_EXIT(
      {
        ::alarm(60);
        const bool isRight = test::ownMounts() && test::mountHung(_path) &&
                             _files.exists(place()) && remove() == "Invalid cross-device link" &&
                             makeWay() == "Invalid cross-device link" &&
                             store("x") == "Invalid cross-device link";
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

// Network file systems know fewer ways of renaming.
TEST_F(LinuxShortcutsTest, WorksTheSameWhereTheFileSystemKnowsOnlyPlainRenaming) {
  for (const int error : {EINVAL, ENOSYS}) {
    EXPECT_EXIT(
        {
          bool isRight = test::withholdCall(SYS_renameat2, error) && store("one").empty() &&
                         store("two").empty() && contentOf(_path) == shortcutWith("two") &&
                         count() == 1 && remove().empty() && count() == 0;
          put(_path, "the user's");
          isRight = isRight && !store("x").empty() && !remove().empty() && count() == 1 &&
                    contentOf(_path) == "the user's";
          ::_exit(isRight ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
    fs::remove(_path);
  }
}

TEST_F(LinuxShortcutsTest, WorksTheSameWhereThereAreNoHardLinksEither) {
  EXPECT_EXIT(
      {
        bool isRight = test::withholdCall(SYS_renameat2, EINVAL) &&
                       test::withholdCall(SYS_linkat, EPERM) && store("one").empty() &&
                       store("two").empty() && contentOf(_path) == shortcutWith("two") &&
                       count() == 1 && remove().empty() && count() == 0;
        put(_path, "the user's");
        isRight =
            isRight && !store("x").empty() && count() == 1 && contentOf(_path) == "the user's";
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

/// While something is done at the path over and over, somebody exchanges a file of his own for what
/// is there; whatever the moment, he finds it afterwards.
class ExchangeTest : public LinuxShortcutsTest {
 protected:
  template <class Operation>
  void expectNothingLost(const Operation& operation) {
    for (int round = 0; round < 300; ++round) {
      const std::string mine = "the user's " + std::to_string(round);
      put(_mine, mine);
      ASSERT_EQ(store("old"), "");
      std::atomic<bool> isDone = false;
      std::thread user([&] {
        while (!isDone) {
          ::renameat2(AT_FDCWD, _mine.c_str(), AT_FDCWD, _path.c_str(), RENAME_EXCHANGE);
        }
      });
      for (int count = 0; count < 10; ++count) {
        operation();
      }
      isDone = true;
      user.join();
      ASSERT_EQ(countOf(mine), 1U) << round;
      for (const auto& entry : fs::directory_iterator(_home.desktop())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(".ravelin"));
        fs::remove(entry.path());
      }
    }
  }

  const std::string _mine = _home.desktop() + "/mine";
};

TEST_F(ExchangeTest, RemovingTakesOnlyTheShortcut) {
  expectNothingLost([this] {
    remove();
    store("again");
  });
}

TEST_F(ExchangeTest, StoringReplacesOnlyAShortcut) {
  expectNothingLost([this] { store("new"); });
}

}  // namespace
}  // namespace ravelin::platform
