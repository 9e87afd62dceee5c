#include "platform/posix/FolderTree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/posix/Descriptor.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

class FolderTreeTest : public testing::Test {
 protected:
  FolderTreeTest() { fs::create_directory(temporary.path() + "/folder"); }

  void write(const std::string& name) const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << "content";
  }

  [[nodiscard]] std::string at(const std::string& name) const {
    return temporary.path() + "/folder/" + name;
  }

  /// Folders of this depth within one another, made step by step, since their path may be too long.
  void makeTower(const std::string& name, int depth) const {
    Descriptor above(::open(at("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::string next = name;
    for (int level = 0; level < depth; ++level) {
      ASSERT_EQ(::mkdirat(above.number(), next.c_str(), 0700), 0);
      above =
          Descriptor(::openat(above.number(), next.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      next = "x";
    }
  }

  int remove(const std::string& name) const {
    const Descriptor folder(::open(at("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return removeTree(folder.number(), name);
  }

  const test::TemporaryDirectory temporary;
};

TEST_F(FolderTreeTest, TakesAFolderWithAllItsContentAndNothingBesideIt) {
  write("tree/one");
  write("tree/.hidden");
  write("tree/a/b/c/two");
  fs::create_directory(at("tree/empty"));
  ASSERT_EQ(::mkfifo(at("tree/fifo").c_str(), 0600), 0);
  write("tree beside/kept");
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_FALSE(fs::exists(at("tree")));
  EXPECT_TRUE(fs::exists(at("tree beside/kept")));
}

TEST_F(FolderTreeTest, TakesAFileAsWell) {
  write("file");
  EXPECT_EQ(remove("file"), 0);
  EXPECT_FALSE(fs::exists(at("file")));
}

TEST_F(FolderTreeTest, WhatIsNotThereIsAnError) { EXPECT_EQ(remove("missing"), ENOENT); }

TEST_F(FolderTreeTest, WhatGoesByItselfMeanwhileDoesNotStopIt) {
  constexpr int FILES = 500;
  constexpr int ATTEMPTS = 3;
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    for (int file = 0; file < FILES; ++file) {
      write("tree/" + std::to_string(file));
    }
    std::thread other([this] {
      for (int file = FILES; file-- > 0;) {
        ::unlink(at("tree/" + std::to_string(file)).c_str());
      }
    });
    EXPECT_EQ(remove("tree"), 0);
    other.join();
    ASSERT_FALSE(fs::exists(at("tree")));
  }
}

TEST_F(FolderTreeTest, FollowsNoLink) {
  write("outside/kept");
  fs::create_directory(at("tree"));
  fs::create_directory_symlink(at("outside"), at("tree/folder"));
  fs::create_symlink(at("outside/kept"), at("tree/file"));
  fs::create_symlink("nowhere", at("tree/dead"));
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_FALSE(fs::exists(at("tree")));
  EXPECT_TRUE(fs::exists(at("outside/kept")));
  fs::create_directory_symlink(at("outside"), at("link"));
  EXPECT_EQ(remove("link"), 0);
  EXPECT_FALSE(fs::is_symlink(at("link")));
  EXPECT_TRUE(fs::exists(at("outside/kept")));
}

TEST_F(FolderTreeTest, ATreeThatIsTooDeepIsGivenUp) {
  makeTower("deep", 64);
  EXPECT_EQ(remove("deep"), 0);
  makeTower("deep", 65);
  EXPECT_EQ(remove("deep"), ELOOP);
  EXPECT_TRUE(fs::exists(at("deep")));
}

/// Where only its owner may change a folder, which the superuser need not mind.
TEST_F(FolderTreeTest, AFolderThatMayNotBeReadStopsIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        write("tree/closed/kept");
        fs::permissions(temporary.path(), fs::perms::all);
        fs::permissions(at(""), fs::perms::all);
        fs::permissions(at("tree"), fs::perms::all);
        fs::permissions(at("tree/closed"), fs::perms::none);
        constexpr uid_t NOBODY = 65534;
        const bool isNobody = ::geteuid() != 0 || ::seteuid(NOBODY) == 0;
        const int error = remove("tree");
        const bool isBack = ::seteuid(::getuid()) == 0;
        fs::permissions(at("tree/closed"), fs::perms::owner_all);
        const bool isKept = fs::exists(at("tree/closed/kept"));
        fs::remove_all(temporary.path());
        std::_Exit(isNobody && isBack && isKept && error == EACCES ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ravelin::platform
