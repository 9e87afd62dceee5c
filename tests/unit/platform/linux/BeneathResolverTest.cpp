#include "platform/linux/BeneathResolver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/TemporaryDirectory.h"
#include "support/WithheldCall.h"
#include "support/linux/OwnMounts.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

/// Whether the place is this name in this very folder.
bool isAt(const BeneathResolver::Place& place, const std::string& folder, const std::string& name) {
  struct stat found{};
  struct stat wanted{};
  return place.error == 0 && place.name == name && ::fstat(place.folder.number(), &found) == 0 &&
         ::stat(folder.c_str(), &wanted) == 0 && found.st_dev == wanted.st_dev &&
         found.st_ino == wanted.st_ino;
}

/// From now on openat2 fails in this process with the error, as on an old kernel or in a sandbox.
bool withholdKernelWalk(int error) {
  return test::withholdCall(SYS_openat2, error) &&
         ::syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0) == -1 && errno == error;
}

class BeneathResolverTest : public testing::TestWithParam<BeneathResolver::Strategy> {
 protected:
  BeneathResolverTest() {
    fs::create_directories(_folder + "/one/two");
    fs::create_directory_symlink("one", _folder + "/within");
    fs::create_directory_symlink("/", _folder + "/root");
    fs::create_directory_symlink("..", _folder + "/one/up");
    fs::create_directory_symlink(_folder, _temporary.path() + "/link");
  }

  [[nodiscard]] BeneathResolver::Place find(const std::string& below) const {
    return _resolver.resolve(_folder + "/" + below, _folder);
  }

  [[nodiscard]] int errorFor(const std::string& below) const { return find(below).error; }

  const BeneathResolver _resolver{GetParam()};
  const test::TemporaryDirectory _temporary;
  const std::string _folder = _temporary.path() + "/folder";
};

INSTANTIATE_TEST_SUITE_P(Both, BeneathResolverTest,
                         testing::Values(BeneathResolver::Strategy::kernel,
                                         BeneathResolver::Strategy::stepwise),
                         [](const auto& suite) {
                           return suite.param == BeneathResolver::Strategy::kernel ? "Kernel"
                                                                                   : "Stepwise";
                         });

TEST_P(BeneathResolverTest, FindsPlacesInTheFolderAndFurtherDown) {
  EXPECT_TRUE(isAt(find("name"), _folder, "name"));
  EXPECT_TRUE(isAt(find("..."), _folder, "..."));
  EXPECT_TRUE(isAt(find("one"), _folder, "one"));
  EXPECT_TRUE(isAt(find("one/name"), _folder + "/one", "name"));
  EXPECT_TRUE(isAt(find("one/two/name"), _folder + "/one/two", "name"));
}

TEST_P(BeneathResolverTest, SlashesTooManyAndDotsOnTheWayChangeNothing) {
  EXPECT_TRUE(isAt(find("/name"), _folder, "name"));
  EXPECT_TRUE(isAt(find("///one//.//two/./name"), _folder + "/one/two", "name"));
}

TEST_P(BeneathResolverTest, ALinkAsTheLastComponentIsAPlaceOfItsOwn) {
  EXPECT_TRUE(isAt(find("root"), _folder, "root"));
}

TEST_P(BeneathResolverTest, TheFolderMayBeReachedThroughALink) {
  const std::string link = _temporary.path() + "/link";
  EXPECT_TRUE(isAt(_resolver.resolve(link + "/one/name", link), _folder + "/one", "name"));
  EXPECT_TRUE(isAt(_resolver.resolve("//name", "/"), "/", "name"));
}

TEST_P(BeneathResolverTest, RefusesEveryLinkOnTheWay) {
  EXPECT_NE(errorFor("within/name"), 0);
  EXPECT_NE(errorFor("root/name"), 0);
  EXPECT_NE(errorFor("root/etc/passwd"), 0);
  EXPECT_NE(errorFor("one/up/name"), 0);
}

TEST_P(BeneathResolverTest, RefusesEveryStepUpwards) {
  for (const char* const below : {"..", "../name", "one/..", "one/../name", "one/../../name",
                                  "one/two/../name", "/../name", "./../name"}) {
    EXPECT_EQ(errorFor(below), EPERM) << below;
  }
}

TEST_P(BeneathResolverTest, RefusesALastComponentThatIsNone) {
  for (const char* const below : {"", "/", ".", "one/", "one/.", "one/two//"}) {
    EXPECT_EQ(errorFor(below), EPERM) << below;
  }
}

TEST_P(BeneathResolverTest, RefusesPathsThatDoNotBeginWithTheFolder) {
  EXPECT_EQ(_resolver.resolve(_folder, _folder).error, EPERM);
  EXPECT_EQ(_resolver.resolve(_folder + "s/name", _folder).error, EPERM);
  EXPECT_EQ(_resolver.resolve("/name", _folder).error, EPERM);
  EXPECT_EQ(_resolver.resolve("name", "").error, EPERM);
  EXPECT_EQ(_resolver.resolve("folder/name", "folder").error, EPERM);
  EXPECT_EQ(_resolver.resolve("/name", "").error, EPERM);
}

TEST_P(BeneathResolverTest, TellsWhatIsMissingOrNoFolder) {
  std::filesystem::copy_file("/proc/self/comm", _folder + "/file");
  EXPECT_EQ(errorFor("missing/name"), ENOENT);
  EXPECT_EQ(errorFor("one/missing/name"), ENOENT);
  EXPECT_EQ(errorFor("file/name"), ENOTDIR);
  EXPECT_EQ(_resolver.resolve("/missing/name", "/missing").error, ENOENT);
  EXPECT_EQ(_resolver.resolve(_folder + "/name", std::nullopt).error, ENOENT);
}

TEST_P(BeneathResolverTest, RefusesEveryNul) {
  const std::string cut(1, '\0');
  EXPECT_EQ(errorFor("name" + cut), EINVAL);
  EXPECT_EQ(errorFor("one" + cut + "/name"), EINVAL);
  EXPECT_EQ(_resolver.resolve(_folder + cut + "/name", _folder + cut).error, EINVAL);
}

TEST_P(BeneathResolverTest, EntersNoOtherMount) {
  EXPECT_EXIT(
      {
        const bool isRight =
            test::ownMounts() && test::mountMemory(_folder + "/one") &&
            fs::create_directory(_folder + "/one/two") && errorFor("one/name") == EXDEV &&
            errorFor("one/two/name") == EXDEV && isAt(find("name"), _folder, "name") &&
            // The same file system in another place is another mount, too.
            fs::create_directory(_folder + "/same") &&
            ::mount(_folder.c_str(), (_folder + "/same").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
            errorFor("same/name") == EXDEV;
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_P(BeneathResolverTest, TheFolderItselfMayBeAMount) {
  EXPECT_EXIT(
      {
        const bool isRight = test::ownMounts() && test::mountMemory(_folder) &&
                             fs::create_directory(_folder + "/new") &&
                             isAt(find("name"), _folder, "name") &&
                             isAt(find("new/name"), _folder + "/new", "name");
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_P(BeneathResolverTest, DoesNotHangWithAMountThatHangs) {
  EXPECT_EXIT(
      {
        ::alarm(60);
        const bool isRight = test::ownMounts() && test::mountHung(_folder + "/one") &&
                             errorFor("one/name") == EXDEV && errorFor("one/two/name") == EXDEV &&
                             !_resolver.open(find("one").folder.number(), "one").isOpen() &&
                             errno == EXDEV;
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_P(BeneathResolverTest, OpensTheItemOfAPlaceAndNotWhatItLeadsTo) {
  const auto place = find("root");
  struct stat status{};
  const Descriptor link = _resolver.open(place.folder.number(), place.name);
  ASSERT_EQ(::fstat(link.number(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_FALSE(_resolver.open(place.folder.number(), "missing").isOpen());
  EXPECT_EQ(errno, ENOENT);
}

TEST_P(BeneathResolverTest, LeavesNoDescriptorOpen) {
  const int before = ::dup(0);
  ::close(before);
  for (int round = 0; round < 10; ++round) {
    static_cast<void>(find("one/two/name"));
    static_cast<void>(find("one/missing/name"));
    static_cast<void>(find("root/name"));
    static_cast<void>(find("../name"));
  }
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(after, before);
}

TEST_P(BeneathResolverTest, WorksTheSameWhereTheKernelLacksItsWalk) {
  for (const int error : {ENOSYS, EPERM}) {
    EXPECT_EXIT(
        {
          const bool isRight = withholdKernelWalk(error) &&
                               isAt(find("one/two/name"), _folder + "/one/two", "name") &&
                               errorFor("root/name") != 0 && errorFor("one/up/name") != 0 &&
                               errorFor("one/missing/name") == ENOENT &&
                               errorFor("one/../name") == EPERM;
          ::_exit(isRight ? 7 : 1);
        },
        testing::ExitedWithCode(7), "")
        << error;
  }
}

}  // namespace
}  // namespace ravelin::platform
