#include "platform/posix/ShortcutFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "platform/posix/StepwiseAccess.h"
#include "platform/posix/TemporaryFile.h"
#include "support/Shortcuts.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using test::shortcutWith;

using Names = std::vector<std::string>;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void put(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// The pieces of a system whose shortcuts are the files with the first line of one, and the folders
/// that have such a file "mark" in them. It knows all kinds of renaming or only the plain one, and
/// fails where the test says so. Its trash is a folder.
class PlainShortcuts final : public NativeShortcuts {
 public:
  PlainShortcuts(const FolderAccess& access, std::string desktop, std::string trash)
      : _access(access), _desktop(std::move(desktop)), _trash(std::move(trash)) {}

  bool knowsRenaming = true;
  int markError = 0;
  int removalError = 0;
  std::function<void()> beforeExchange = [] {};
  std::function<void()> beforeRenaming = [] {};
  mutable std::vector<std::string> marked;

  [[nodiscard]] bool isShortcut(int folder, const std::string& name,
                                FoundItem& item) const override {
    if (S_ISDIR(item.status.st_mode)) {
      const Descriptor inner = _access.enter(folder, name);
      const FoundItem mark = _access.find(inner.number(), "mark");
      return mark.error == 0 && S_ISREG(mark.status.st_mode) &&
             isMarked(_access.openFound(inner.number(), "mark", mark));
    }
    return S_ISREG(item.status.st_mode) && isMarked(_access.openFound(folder, name, item));
  }
  [[nodiscard]] int mark(int /*folder*/, const std::string& name) const override {
    marked.push_back(name);
    return markError;
  }
  [[nodiscard]] int renameIfFree(int folder, const std::string& from,
                                 const std::string& to) const override {
    beforeRenaming();
    if (!knowsRenaming) {
      return ENOSYS;
    }
    return _access.find(folder, to).error == ENOENT ? rename(folder, from, folder, to) : EEXIST;
  }
  [[nodiscard]] int exchange(int folder, const std::string& one,
                             const std::string& other) const override {
    beforeExchange();
    if (!knowsRenaming) {
      return ENOSYS;
    }
    static_cast<void>(rename(folder, one, folder, "between"));
    static_cast<void>(rename(folder, other, folder, one));
    return rename(folder, "between", folder, other);
  }
  [[nodiscard]] int remove(int /*folder*/, const std::string& name) const override {
    if (removalError == 0) {
      fs::remove_all(_desktop + "/" + name);
    }
    return removalError;
  }
  [[nodiscard]] std::optional<FileError> moveToTrash(const BeneathResolver::Place& place,
                                                     const FoundItem& /*item*/) override {
    fs::rename(_desktop + "/" + place.name, _trash + "/" + place.name);
    return std::nullopt;
  }

 private:
  static bool isMarked(const Descriptor& file) {
    std::string begin(shortcutWith("").size(), '\0');
    return ::read(file.number(), begin.data(), begin.size()) > 0 && begin == shortcutWith("");
  }
  static int rename(int folder, const std::string& from, int newFolder, const std::string& to) {
    return ::renameat(folder, from.c_str(), newFolder, to.c_str()) == 0 ? 0 : errno;
  }

  const FolderAccess& _access;
  const std::string _desktop;
  const std::string _trash;
};

class ShortcutFilesTest : public testing::Test {
 protected:
  ShortcutFilesTest() {
    fs::create_directory(_desktop);
    fs::create_directory(_trash);
  }

  static std::string reason(const std::optional<FileError>& error) {
    return error ? error->localizedDescription : "";
  }

  [[nodiscard]] BeneathResolver::Place place() const { return _resolver.resolve(_path, _desktop); }
  std::string remove() { return reason(_files.remove(place())); }
  std::string makeWay() { return reason(_files.makeWay(place())); }
  std::string store(const std::string& text) {
    return reason(_files.store(place(), shortcutWith(text)));
  }

  void makeFolderShortcut() const {
    fs::create_directories(_path + "/Contents/below");
    put(_path + "/Contents/below/file", "content");
    put(_path + "/mark", shortcutWith(""));
  }

  static Names namesIn(const std::string& folder) {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }

  const test::TemporaryDirectory _temporary;
  const std::string _desktop = _temporary.path() + "/Desktop";
  const std::string _trash = _temporary.path() + "/Trash";
  const std::string _path = _desktop + "/x.app";
  const StepwiseAccess _access;
  const BeneathResolver _resolver{_access};
  PlainShortcuts _native{_access, _desktop, _trash};
  ShortcutFiles _files{_access, _native};
};

TEST_F(ShortcutFilesTest, AShortcutIsStoredReplacedAndRemovedWithoutATrace) {
  for (const bool knowsRenaming : {true, false}) {
    _native.knowsRenaming = knowsRenaming;
    EXPECT_FALSE(_files.exists(place()));
    EXPECT_EQ(store("one"), "");
    EXPECT_TRUE(_files.exists(place()));
    EXPECT_EQ(store("two"), "");
    EXPECT_EQ(contentOf(_path), shortcutWith("two"));
    EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
    EXPECT_EQ(remove(), "");
    EXPECT_EQ(store("three"), "");
    EXPECT_EQ(makeWay(), "");
    EXPECT_EQ(namesIn(_desktop), Names{});
    EXPECT_EQ(remove(), "No such file or directory");
    EXPECT_EQ(makeWay(), "");
  }
  EXPECT_EQ(namesIn(_trash), Names{});
}

TEST_F(ShortcutFilesTest, AShortcutThatIsAFolderIsRemovedWithItsContent) {
  makeFolderShortcut();
  EXPECT_EQ(remove(), "");
  EXPECT_EQ(namesIn(_desktop), Names{});
  makeFolderShortcut();
  EXPECT_EQ(makeWay(), "");
  EXPECT_EQ(namesIn(_desktop), Names{});
  EXPECT_EQ(namesIn(_trash), Names{});
}

TEST_F(ShortcutFilesTest, AShortcutThatIsAFolderIsReplacedByOneThatIsAFile) {
  for (const bool knowsRenaming : {true, false}) {
    _native.knowsRenaming = knowsRenaming;
    makeFolderShortcut();
    EXPECT_EQ(store("new"), "");
    EXPECT_EQ(contentOf(_path), shortcutWith("new"));
    EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
    EXPECT_EQ(remove(), "");
  }
}

TEST_F(ShortcutFilesTest, AFolderOfTheUsersIsNoShortcut) {
  fs::create_directories(_path + "/below");
  EXPECT_EQ(remove(), "Is a directory");
  EXPECT_EQ(store("x"), "Is a directory");
  EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
  EXPECT_EQ(makeWay(), "");
  EXPECT_TRUE(fs::is_directory(_trash + "/x.app/below"));
}

TEST_F(ShortcutFilesTest, WhatCannotBeRemovedGetsItsNameBack) {
  ASSERT_EQ(store("old"), "");
  _native.removalError = EACCES;
  for (const bool knowsRenaming : {true, false}) {
    _native.knowsRenaming = knowsRenaming;
    EXPECT_EQ(remove(), "Permission denied");
    EXPECT_EQ(makeWay(), "Permission denied");
    EXPECT_EQ(contentOf(_path), shortcutWith("old"));
    EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
  }
}

TEST_F(ShortcutFilesTest, TheMarkIsSetBeforeTheFileHasItsName) {
  _native.beforeRenaming = [this] {
    EXPECT_EQ(_native.marked.size(), 1U);
    EXPECT_FALSE(fs::exists(_path));
  };
  EXPECT_EQ(store("x"), "");
  ASSERT_EQ(_native.marked.size(), 1U);
  EXPECT_NE(_native.marked.front(), "x.app");
}

TEST_F(ShortcutFilesTest, AFileThatCannotBeMarkedIsNoShortcut) {
  _native.markError = ENOTSUP;
  EXPECT_NE(store("x"), "");
  EXPECT_EQ(namesIn(_desktop), Names{});
}

TEST_F(ShortcutFilesTest, WhatComesInTheMomentOfTheReplacementIsPutBack) {
  ASSERT_EQ(store("old"), "");
  _native.beforeExchange = [this] { put(_path, "the user's"); };
  EXPECT_EQ(store("new"), "It is not a shortcut of Ravelin Disk");
  EXPECT_EQ(contentOf(_path), "the user's");
  EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
}

TEST_F(ShortcutFilesTest, WhatComesWhereAShortcutWasTakenAsideKeepsItsName) {
  ASSERT_EQ(store("old"), "");
  _native.removalError = EACCES;
  _native.beforeRenaming = [this] {
    if (!fs::exists(_path)) {
      put(_path, "the user's");
    }
  };
  EXPECT_EQ(remove(), "Permission denied");
  EXPECT_EQ(contentOf(_path), "the user's");
  EXPECT_EQ(contentOf(_desktop + "/x.app (1)"), shortcutWith("old"));
  EXPECT_EQ(namesIn(_desktop), (Names{"x.app", "x.app (1)"}));
}

TEST_F(ShortcutFilesTest, WhatComesInTheMomentOfTheRemovalIsPutBack) {
  for (const bool isTheSameFile : {true, false}) {
    ASSERT_EQ(store("old"), "");
    _native.beforeRenaming = [this, isTheSameFile] {
      if (!isTheSameFile) {
        fs::remove(_path);
      }
      put(_path, "the user's");
      _native.beforeRenaming = [] {};
    };
    EXPECT_EQ(remove(), "It is not a shortcut of Ravelin Disk");
    EXPECT_EQ(contentOf(_path), "the user's");
    EXPECT_EQ(namesIn(_desktop), Names{"x.app"});
    fs::remove(_path);
  }
}

TEST_F(ShortcutFilesTest, NothingIsReplacedWhereAShortcutIsTakenAside) {
  // The next names that a removal would choose.
  const std::string last = TemporaryFile::freshName(TemporaryFile::Purpose::removal);
  const std::size_t digits = last.rfind('-') + 1;
  Names others;
  for (unsigned long number = 1; number <= 5; ++number) {
    others.push_back(last.substr(0, digits) +
                     std::to_string(std::stoul(last.substr(digits)) + number));
  }
  std::ranges::sort(others);
  for (const bool knowsRenaming : {true, false}) {
    _native.knowsRenaming = knowsRenaming;
    put(_path, shortcutWith(""));
    for (const std::string& name : others) {
      put(_desktop + "/" + name, "somebody's");
    }
    EXPECT_EQ(remove(), "");
    EXPECT_EQ(namesIn(_desktop), others);
    for (const std::string& name : others) {
      EXPECT_EQ(contentOf(_desktop + "/" + name), "somebody's");
    }
  }
}

}  // namespace
}  // namespace ravelin::platform
