#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include "platform/Service.h"
#include "support/NoFreeDescriptors.h"
#include "support/Shortcuts.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void put(const std::string& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

mode_t modeOf(const std::string& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

using test::shortcutWith;

using Names = std::vector<std::string>;

class Umask {
 public:
  explicit Umask(mode_t mask) : _before(::umask(mask)) {}
  ~Umask() { ::umask(_before); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t _before;
};

class FileManagerTest : public testing::Test {
 protected:
  FileManagerTest() {
    fs::create_directory(_desktop);
    fs::create_directory(_outside);
  }

  /// Why the operation failed, or "" when it did not.
  static std::string reason(const std::optional<FileError>& error) {
    return error ? error->localizedDescription : "";
  }

  /// The whole content of the file, or null when there is none to be had.
  Text contentsAt(const std::string& path, std::size_t limit = FileManager::CONTENT_LIMIT) {
    return _files.contentsAtPath(path, limit).text;
  }

  /// What reading came to: the content, that there is nothing, or why that is not known.
  static std::string told(const FileContents& contents) {
    if (contents.text) {
      return "content: " + *contents.text;
    }
    return contents.isAbsent() ? "nothing" : "error: " + reason(contents.error);
  }

  /// A path as a stranger may have named it.
  [[nodiscard]] std::string onDesktop(const std::string& name) const {
    return _desktop + "/" + name;
  }

  /// That nothing can be done at the path, and nothing was.
  void expectRefused(const std::string& path, const Text& beneath) {
    EXPECT_FALSE(_files.itemExistsAtPath(path, beneath)) << path;
    EXPECT_EQ(_files.contentsOfItemAtPath(path, beneath).text, std::nullopt) << path;
    EXPECT_NE(reason(_files.removeShortcutAtPath(path, beneath)), "") << path;
    EXPECT_NE(reason(_files.makeWayAtPath(path, beneath)), "") << path;
    EXPECT_NE(reason(_files.writeShortcutAtPath(path, beneath, shortcutWith("hostile"))), "")
        << path;
  }

  FileManager& _files = native<FileManager>();
  const test::TemporaryDirectory _temporary;
  const std::string _desktop = _temporary.path() + "/Desktop";
  const std::string _outside = _temporary.path() + "/Outside";
};

// --- createDirectoryAtPath

TEST_F(FileManagerTest, MakesAFolderWithTheMissingOnesAbove) {
  const Umask umask(027);
  const std::string path = _temporary.path() + "/a/b/c";
  EXPECT_TRUE(_files.createDirectoryAtPath(path));
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_EQ(modeOf(path), mode_t{0750});
  EXPECT_EQ(modeOf(_temporary.path() + "/a"), mode_t{0750});
}

TEST_F(FileManagerTest, AFolderThatIsThereAlreadyCountsAsMade) {
  put(onDesktop("kept"), "x");
  EXPECT_TRUE(_files.createDirectoryAtPath(_desktop));
  EXPECT_TRUE(_files.createDirectoryAtPath(_desktop + "/"));
  EXPECT_TRUE(_files.createDirectoryAtPath("/"));
  EXPECT_EQ(contentOf(onDesktop("kept")), "x");
}

TEST_F(FileManagerTest, MakesAFolderWhosePathHasDoubleAndTrailingSlashes) {
  EXPECT_TRUE(_files.createDirectoryAtPath(_temporary.path() + "//x//y//"));
  EXPECT_TRUE(fs::is_directory(_temporary.path() + "/x/y"));
}

TEST_F(FileManagerTest, FollowsALinkToAFolderWhenMakingOne) {
  fs::create_directory_symlink(_desktop, _temporary.path() + "/link");
  EXPECT_TRUE(_files.createDirectoryAtPath(_temporary.path() + "/link"));
  EXPECT_TRUE(_files.createDirectoryAtPath(_temporary.path() + "/link/inner"));
  EXPECT_TRUE(fs::is_directory(onDesktop("inner")));
}

TEST_F(FileManagerTest, MakesNoFolderWhereAFileOrADeadLinkIs) {
  put(onDesktop("file"), "x");
  fs::create_symlink(_temporary.path() + "/nowhere", onDesktop("dead"));
  EXPECT_FALSE(_files.createDirectoryAtPath(onDesktop("file")));
  EXPECT_FALSE(_files.createDirectoryAtPath(onDesktop("file/inner")));
  EXPECT_FALSE(_files.createDirectoryAtPath(onDesktop("dead")));
  EXPECT_EQ(contentOf(onDesktop("file")), "x");
}

TEST_F(FileManagerTest, MakesNoFolderForAPathThatNamesNothing) {
  const std::string before = fs::current_path();
  fs::current_path(_temporary.path());
  EXPECT_FALSE(_files.createDirectoryAtPath("relative"));
  EXPECT_FALSE(_files.createDirectoryAtPath(""));
  EXPECT_FALSE(_files.createDirectoryAtPath(_temporary.path() + "/cut" + std::string(1, '\0')));
  fs::current_path(before);
  EXPECT_EQ(namesIn(_temporary.path()), (Names{"Desktop", "Outside"}));
}

// --- fileExistsAtPath

TEST_F(FileManagerTest, SeesFilesFoldersAndWhereLinksLead) {
  put(onDesktop("file"), "x");
  fs::create_symlink(onDesktop("file"), onDesktop("live"));
  fs::create_symlink(onDesktop("nothing"), onDesktop("dead"));
  EXPECT_TRUE(_files.fileExistsAtPath(_desktop));
  EXPECT_TRUE(_files.fileExistsAtPath(onDesktop("file")));
  EXPECT_TRUE(_files.fileExistsAtPath(onDesktop("live")));
  EXPECT_FALSE(_files.fileExistsAtPath(onDesktop("dead")));
  EXPECT_FALSE(_files.fileExistsAtPath(onDesktop("nothing")));
}

TEST_F(FileManagerTest, ThereIsNothingAtAPathThatNamesNothing) {
  EXPECT_FALSE(_files.fileExistsAtPath(""));
  EXPECT_FALSE(_files.fileExistsAtPath("."));
  EXPECT_FALSE(_files.fileExistsAtPath(_desktop + std::string(1, '\0') + "x"));
}

// --- contentsAtPath

TEST_F(FileManagerTest, ReadsAFileWhollyAndByteForByte) {
  std::string content = std::string("a\0b\n\xFF", 5);
  put(onDesktop("small"), content);
  EXPECT_EQ(contentsAt(onDesktop("small")), content);
  content.assign(3'000'001, 'x');
  put(onDesktop("large"), content);
  EXPECT_EQ(contentsAt(onDesktop("large")), content);
}

TEST_F(FileManagerTest, AnEmptyFileIsNotAMissingOne) {
  put(onDesktop("empty"), "");
  EXPECT_EQ(contentsAt(onDesktop("empty")), Text(""));
  EXPECT_EQ(contentsAt(onDesktop("missing")), std::nullopt);
}

TEST_F(FileManagerTest, ReadsAFileThroughALink) {
  put(onDesktop("file"), "x");
  fs::create_symlink(onDesktop("file"), onDesktop("link"));
  EXPECT_EQ(contentsAt(onDesktop("link")), Text("x"));
}

TEST_F(FileManagerTest, ReadsUpToSixteenMebibytes) {
  constexpr std::uintmax_t LIMIT = 16UL * 1024 * 1024;
  put(onDesktop("most"), "");
  fs::resize_file(onDesktop("most"), LIMIT);
  const Text most = contentsAt(onDesktop("most"));
  ASSERT_TRUE(most);
  EXPECT_EQ(most->size(), LIMIT);
  fs::resize_file(onDesktop("most"), LIMIT + 1);
  EXPECT_EQ(contentsAt(onDesktop("most")), std::nullopt);
}

TEST_F(FileManagerTest, ReadsAsMuchAsItsCallerWants) {
  put(onDesktop("file"), "12345");
  EXPECT_EQ(contentsAt(onDesktop("file"), 5), Text("12345"));
  EXPECT_EQ(contentsAt(onDesktop("file"), 4), std::nullopt);
  fs::resize_file(onDesktop("file"), 17UL * 1024 * 1024);
  EXPECT_NE(contentsAt(onDesktop("file"), 17UL * 1024 * 1024), std::nullopt);
}

TEST_F(FileManagerTest, WhatIsNoFileHasNoContentAndIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(onDesktop("pipe").c_str(), 0600), 0);
  EXPECT_EQ(contentsAt(onDesktop("pipe")), std::nullopt);
  EXPECT_EQ(contentsAt(_desktop), std::nullopt);
  EXPECT_EQ(contentsAt("/dev/zero"), std::nullopt);
  EXPECT_EQ(contentsAt("Desktop"), std::nullopt);
  EXPECT_EQ(contentsAt(_desktop + std::string(1, '\0')), std::nullopt);
}

TEST_F(FileManagerTest, WhatIsNotThereAndWhatCannotBeReadAreToldApart) {
  put(onDesktop("file"), "x");
  put(onDesktop("large"), "");
  fs::resize_file(onDesktop("large"), FileManager::CONTENT_LIMIT + 1);
  fs::create_symlink("file", onDesktop("link"));
  fs::create_symlink("nothing", onDesktop("dead"));
  fs::create_symlink("loop", onDesktop("loop"));
  ASSERT_EQ(::mkfifo(onDesktop("pipe").c_str(), 0600), 0);
  const std::string tooLong(300, 'n');
  const std::string cut = std::string("a\0b", 3);
  const auto at = [this](const std::string& name) {
    return told(_files.contentsAtPath(onDesktop(name), FileManager::CONTENT_LIMIT));
  };
  const auto beneath = [this](const std::string& name) {
    return told(_files.contentsOfItemAtPath(onDesktop(name), _desktop));
  };
  for (const char* const name : {"missing", "missing/x", "file/x"}) {
    EXPECT_EQ(at(name), "nothing") << name;
    EXPECT_EQ(beneath(name), "nothing") << name;
  }
  EXPECT_EQ(at("file"), "content: x");
  EXPECT_EQ(at("link"), "content: x");
  EXPECT_EQ(at("dead"), "nothing");
  EXPECT_EQ(at("loop"), "error: Too many levels of symbolic links");
  EXPECT_EQ(at(""), "error: Is a directory");
  EXPECT_EQ(beneath("file"), "content: x");
  EXPECT_EQ(beneath(""), "error: Operation not permitted");
  for (const char* const name : {"link", "dead", "loop"}) {
    EXPECT_EQ(beneath(name), "error: It is not a file") << name;
  }
  for (const auto& look : {std::function(at), std::function(beneath)}) {
    EXPECT_EQ(look("pipe"), "error: It is not a file");
    EXPECT_EQ(look("large"), "error: File too large");
    EXPECT_EQ(look(tooLong), "error: File name too long");
    EXPECT_EQ(look(cut), "error: Invalid argument");
    const test::NoFreeDescriptors none;
    EXPECT_EQ(look("file"), "error: Too many open files");
  }
}

// --- writeAtomically

TEST_F(FileManagerTest, WritesAFileWithTheUsersDefaultMode) {
  const Umask umask(077);
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("record"), "one\n")), "");
  EXPECT_EQ(contentOf(onDesktop("record")), "one\n");
  EXPECT_EQ(modeOf(onDesktop("record")), mode_t{0600});
}

TEST_F(FileManagerTest, NoFileIsEverExecutable) {
  const Umask umask(0);
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("record"), "x")), "");
  EXPECT_EQ(reason(_files.writeShortcutAtPath(onDesktop("shortcut"), _desktop, "x")), "");
  EXPECT_EQ(modeOf(onDesktop("record")), mode_t{0644});
  EXPECT_EQ(modeOf(onDesktop("shortcut")), mode_t{0644});
}

TEST_F(FileManagerTest, ReplacesTheFileThatIsThere) {
  put(onDesktop("record"), "a much longer text than the new one");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("record"), "new")), "");
  EXPECT_EQ(contentOf(onDesktop("record")), "new");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("record"), "")), "");
  EXPECT_EQ(contentOf(onDesktop("record")), "");
  EXPECT_EQ(namesIn(_desktop), Names{"record"});
}

TEST_F(FileManagerTest, SaysWhyAFileCannotBeWritten) {
  fs::create_directory(onDesktop("folder"));
  put(onDesktop("file"), "x");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("folder"), "x")), "Is a directory");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("folder/"), "x")), "Is a directory");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("missing/x"), "x")),
            "No such file or directory");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop("file/x"), "x")), "Not a directory");
  EXPECT_EQ(reason(_files.writeAtomically("relative", "x")), "Invalid argument");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop(std::string("a\0b", 3)), "x")),
            "Invalid argument");
  EXPECT_EQ(reason(_files.writeAtomically(onDesktop(std::string(300, 'n')), "x")),
            "File name too long");
  EXPECT_EQ(namesIn(_desktop), (Names{"file", "folder"}));
  EXPECT_EQ(namesIn(onDesktop("folder")), Names{});
}

TEST_F(FileManagerTest, WritesLargeContentWholly) {
  const std::string content(5'000'000, 'y');
  EXPECT_EQ(reason(_files.writeShortcutAtPath(onDesktop("large"), _desktop, content)), "");
  EXPECT_EQ(contentOf(onDesktop("large")), content);
}

TEST_F(FileManagerTest, AFullDiskLeavesTheOldFileAndNothingElse) {
  put(onDesktop("kept"), "old");
  put(onDesktop("shortcut"), shortcutWith("old"));
  // The limit on a file's size stands in for the end of the disk; in a process of its own, since
  // it holds for all files.
  const auto attempt = [&](const auto& write) {
    EXPECT_EXIT(
        {
          ::signal(SIGXFSZ, SIG_IGN);
          rlimit limit{};
          limit.rlim_cur = limit.rlim_max = 100'000;
          const bool isLimited = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
          const std::string why = reason(write(std::string(300'000, 'z')));
          ::_exit(isLimited && why == "File too large" ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(namesIn(_desktop), (Names{"kept", "shortcut"}));
    EXPECT_EQ(contentOf(onDesktop("kept")), "old");
    EXPECT_EQ(contentOf(onDesktop("shortcut")), shortcutWith("old"));
  };
  attempt([&](const std::string& content) {
    return _files.writeShortcutAtPath(onDesktop("shortcut"), _desktop, content);
  });
  attempt([&](const std::string& content) {
    return _files.writeAtomically(onDesktop("kept"), content);
  });
}

TEST_F(FileManagerTest, TemporaryFilesLeftByAnotherProcessAreNoHindrance) {
  const std::string mine = ".ravelin-disk-" + std::to_string(::getpid()) + "-";
  for (int number = 0; number < 20; ++number) {
    put(onDesktop(mine + std::to_string(number)), "left");
  }
  EXPECT_EQ(reason(_files.writeShortcutAtPath(onDesktop("a.app"), _desktop, "new")), "");
  EXPECT_EQ(contentOf(onDesktop("a.app")), "new");
  EXPECT_EQ(namesIn(_desktop).size(), 21U);
  EXPECT_EQ(contentOf(onDesktop(mine + "0")), "left");
}

TEST_F(FileManagerTest, AReaderSeesTheOldFileOrTheNewNeverAPart) {
  const std::string first = shortcutWith(std::string(50'000, 'a'));
  const std::string second = shortcutWith(std::string(70'000, 'b'));
  ASSERT_EQ(reason(_files.writeShortcutAtPath(onDesktop("x"), _desktop, first)), "");
  std::atomic<bool> isDone = false;
  std::thread writer([&] {
    for (int round = 0; round < 200; ++round) {
      static_cast<void>(
          _files.writeShortcutAtPath(onDesktop("x"), _desktop, round % 2 == 0 ? second : first));
    }
    isDone = true;
  });
  while (!isDone) {
    const Text seen = contentsAt(onDesktop("x"));
    EXPECT_TRUE(seen == first || seen == second);
  }
  writer.join();
  EXPECT_EQ(namesIn(_desktop), Names{"x"});
}

TEST_F(FileManagerTest, ManyThreadsWriteBesideEachOther) {
  constexpr int THREADS = 4;
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (int thread = 0; thread < THREADS; ++thread) {
    threads.emplace_back([this, thread] {
      for (int round = 0; round < 50; ++round) {
        const std::string path = onDesktop(std::to_string(thread) + "-" + std::to_string(round));
        EXPECT_EQ(reason(_files.writeShortcutAtPath(path, _desktop, shortcutWith(path))), "");
        EXPECT_EQ(contentsAt(path), shortcutWith(path));
        EXPECT_TRUE(_files.itemExistsAtPath(path, _desktop));
        EXPECT_EQ(reason(_files.removeShortcutAtPath(path, _desktop)), "");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(namesIn(_desktop), Names{});
}

// --- beneath a folder

TEST_F(FileManagerTest, AShortcutIsMadeSeenReplacedAndRemoved) {
  const Umask umask(077);
  const std::string path = onDesktop("USB \xC3\xA4 1.app");
  EXPECT_FALSE(_files.itemExistsAtPath(path, _desktop));
  EXPECT_EQ(reason(_files.writeShortcutAtPath(path, _desktop, shortcutWith("one"))), "");
  EXPECT_TRUE(_files.itemExistsAtPath(path, _desktop));
  EXPECT_EQ(contentOf(path), shortcutWith("one"));
  EXPECT_EQ(modeOf(path), mode_t{0644});
  EXPECT_EQ(reason(_files.writeShortcutAtPath(path, _desktop, shortcutWith("two"))), "");
  EXPECT_EQ(contentOf(path), shortcutWith("two"));
  EXPECT_EQ(namesIn(_desktop), Names{"USB \xC3\xA4 1.app"});
  EXPECT_EQ(reason(_files.removeShortcutAtPath(path, _desktop)), "");
  EXPECT_EQ(namesIn(_desktop), Names{});
}

TEST_F(FileManagerTest, ReadsAFileBeneathButNothingElse) {
  fs::create_directory(onDesktop("inner"));
  put(onDesktop("inner/USB.app"), "content");
  fs::create_symlink("inner/USB.app", onDesktop("link.app"));
  ASSERT_EQ(::mkfifo(onDesktop("pipe.app").c_str(), 0600), 0);
  EXPECT_EQ(_files.contentsOfItemAtPath(onDesktop("inner/USB.app"), _desktop).text,
            Text("content"));
  for (const char* const name : {"link.app", "pipe.app", "inner", "missing.app"}) {
    EXPECT_EQ(_files.contentsOfItemAtPath(onDesktop(name), _desktop).text, std::nullopt) << name;
  }
}

TEST_F(FileManagerTest, RemovingWhatIsNotThereFails) {
  EXPECT_EQ(reason(_files.removeShortcutAtPath(onDesktop("missing"), _desktop)),
            "No such file or directory");
}

TEST_F(FileManagerTest, NeverRemovesOrReplacesAFolder) {
  fs::create_directory(onDesktop("folder.app"));
  EXPECT_EQ(reason(_files.removeShortcutAtPath(onDesktop("folder.app"), _desktop)),
            "Is a directory");
  EXPECT_EQ(reason(_files.writeShortcutAtPath(onDesktop("folder.app"), _desktop, "x")),
            "Is a directory");
  EXPECT_TRUE(_files.itemExistsAtPath(onDesktop("folder.app"), _desktop));
  EXPECT_TRUE(fs::is_directory(onDesktop("folder.app")));
  EXPECT_EQ(namesIn(_desktop), Names{"folder.app"});
}

TEST_F(FileManagerTest, ALinkAtThePathIsMeantItselfAndIsNoShortcut) {
  put(_outside + "/victim", shortcutWith("kept"));
  fs::create_symlink(_outside + "/victim", onDesktop("link.app"));
  fs::create_symlink(_outside + "/nothing", onDesktop("dead.app"));
  for (const char* const name : {"link.app", "dead.app"}) {
    EXPECT_TRUE(_files.itemExistsAtPath(onDesktop(name), _desktop));
    EXPECT_NE(reason(_files.writeShortcutAtPath(onDesktop(name), _desktop, shortcutWith("x"))), "");
    EXPECT_NE(reason(_files.removeShortcutAtPath(onDesktop(name), _desktop)), "");
    EXPECT_TRUE(fs::is_symlink(onDesktop(name)));
  }
  EXPECT_EQ(contentOf(_outside + "/victim"), shortcutWith("kept"));
  EXPECT_EQ(namesIn(_outside), Names{"victim"});
  EXPECT_EQ(namesIn(_desktop), (Names{"dead.app", "link.app"}));
}

TEST_F(FileManagerTest, ALabelWithASlashLeadsIntoAFolderThatExists) {
  fs::create_directory(onDesktop("inner"));
  const std::string path = onDesktop("inner/USB.app");
  EXPECT_EQ(reason(_files.writeShortcutAtPath(path, _desktop, shortcutWith("x"))), "");
  EXPECT_TRUE(_files.itemExistsAtPath(path, _desktop));
  EXPECT_EQ(namesIn(onDesktop("inner")), Names{"USB.app"});
  EXPECT_EQ(reason(_files.removeShortcutAtPath(path, _desktop)), "");
  EXPECT_EQ(namesIn(onDesktop("inner")), Names{});
  EXPECT_EQ(reason(_files.writeShortcutAtPath(onDesktop("missing/USB.app"), _desktop, "x")),
            "No such file or directory");
  EXPECT_EQ(namesIn(_desktop), Names{"inner"});
}

TEST_F(FileManagerTest, TheFolderItselfMayBeReachedThroughLinks) {
  const std::string link = _temporary.path() + "/link";
  fs::create_directory_symlink(_desktop, link);
  EXPECT_EQ(reason(_files.writeShortcutAtPath(link + "/USB.app", link, shortcutWith("x"))), "");
  EXPECT_EQ(contentOf(onDesktop("USB.app")), shortcutWith("x"));
  EXPECT_EQ(reason(_files.removeShortcutAtPath(link + "/USB.app", link)), "");
  EXPECT_EQ(namesIn(_desktop), Names{});
}

TEST_F(FileManagerTest, NothingLeadsOutOfTheFolder) {
  put(_outside + "/victim", "kept");
  fs::create_directory(onDesktop("inner"));
  fs::create_directory_symlink(_outside, onDesktop("way-out"));
  fs::create_directory_symlink("inner", onDesktop("way-in"));
  put(onDesktop("inner/here"), "kept");
  const std::string cut(1, '\0');
  for (const std::string& path : {onDesktop("../Outside/victim"),
                                  onDesktop("inner/../../Outside/victim"),
                                  onDesktop("inner/../inner/here"),
                                  onDesktop("way-out/victim"),
                                  onDesktop("way-in/here"),
                                  onDesktop(".."),
                                  onDesktop("."),
                                  onDesktop(""),
                                  onDesktop("inner/"),
                                  onDesktop("inner/.."),
                                  onDesktop("inner/."),
                                  onDesktop("inner/here/x"),
                                  _outside + "/victim",
                                  _desktop,
                                  _desktop + "s/victim",
                                  _temporary.path() + "/./Desktop/inner/here",
                                  std::string("inner/here"),
                                  std::string(),
                                  onDesktop("inner/here" + cut),
                                  onDesktop("inner/here" + cut + "x"),
                                  cut}) {
    expectRefused(path, _desktop);
  }
  EXPECT_EQ(contentOf(_outside + "/victim"), "kept");
  EXPECT_EQ(contentOf(onDesktop("inner/here")), "kept");
  EXPECT_EQ(namesIn(_outside), Names{"victim"});
  EXPECT_EQ(namesIn(onDesktop("inner")), Names{"here"});
  EXPECT_EQ(namesIn(_desktop), (Names{"inner", "way-in", "way-out"}));
}

TEST_F(FileManagerTest, AnAbsentOrUselessFolderMakesEverythingFail) {
  put(onDesktop("here"), "kept");
  fs::current_path(_temporary.path());
  expectRefused(onDesktop("here"), std::nullopt);
  expectRefused(onDesktop("here"), "");
  expectRefused("Desktop/here", "Desktop");
  expectRefused(onDesktop("here"), _desktop + std::string(1, '\0'));
  expectRefused(_temporary.path() + "/missing/here", _temporary.path() + "/missing");
  expectRefused(onDesktop("here/x"), onDesktop("here"));
  EXPECT_EQ(namesIn(_desktop), Names{"here"});
  EXPECT_EQ(contentOf(onDesktop("here")), "kept");
}

TEST_F(FileManagerTest, SaysWhyAPathBeneathIsRefused) {
  const std::string cut = onDesktop(std::string("a\0b", 3));
  EXPECT_EQ(reason(_files.removeShortcutAtPath(cut, _desktop)), "Invalid argument");
  EXPECT_EQ(reason(_files.writeShortcutAtPath(cut, _desktop, "x")), "Invalid argument");
  EXPECT_EQ(reason(_files.removeShortcutAtPath(onDesktop("../x"), _desktop)),
            "Operation not permitted");
  EXPECT_EQ(reason(_files.removeShortcutAtPath(onDesktop("x"), std::nullopt)),
            "No such file or directory");
  EXPECT_EQ(reason(_files.removeShortcutAtPath(onDesktop(std::string(300, 'n')), _desktop)),
            "File name too long");
}

}  // namespace
}  // namespace ravelin::platform
