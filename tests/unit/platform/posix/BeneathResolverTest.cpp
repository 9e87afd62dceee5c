#include "BeneathResolverTest.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

INSTANTIATE_TEST_SUITE_P(Posix, BeneathResolverTest,
                         testing::Values(NamedAccess{"Stepwise",
                                                     std::make_shared<StepwiseAccess>()}),
                         nameOfAccess);

/// The first bytes of the file.
std::string beginOf(const Descriptor& file) {
  std::array<char, 64> buffer{};
  const ssize_t size = ::read(file.number(), buffer.data(), buffer.size());
  return size < 0 ? "(unreadable)" : std::string(buffer.data(), static_cast<std::size_t>(size));
}

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
  std::ofstream(_folder + "/file") << "x";
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

TEST_P(BeneathResolverTest, FindsTheItemOfAPlaceAndNotWhatItLeadsTo) {
  const auto place = find("root");
  const FoundItem link = _access.find(place.folder.number(), place.name);
  EXPECT_EQ(link.error, 0);
  EXPECT_TRUE(S_ISLNK(link.status.st_mode));
  const FoundItem folder = _access.find(place.folder.number(), "one");
  EXPECT_EQ(folder.error, 0);
  EXPECT_TRUE(S_ISDIR(folder.status.st_mode));
  EXPECT_EQ(_access.find(place.folder.number(), "missing").error, ENOENT);
  EXPECT_EQ(_access.find(place.folder.number(), std::string(300, 'n')).error, ENAMETOOLONG);
}

TEST_P(BeneathResolverTest, EntersFoldersOnly) {
  const Descriptor folder = _access.openFolder(_folder);
  std::ofstream(_folder + "/file") << "x";
  ASSERT_EQ(::mkfifo((_folder + "/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(_access.enter(folder.number(), "one").isOpen());
  for (const char* const name : {"within", "root", "file", "pipe", "missing"}) {
    errno = 0;
    EXPECT_FALSE(_access.enter(folder.number(), name).isOpen()) << name;
    EXPECT_NE(errno, 0) << name;
  }
}

TEST_P(BeneathResolverTest, OpensTheVeryFileThatWasFound) {
  const Descriptor folder = _access.openFolder(_folder);
  std::ofstream(_folder + "/file") << "first";
  const FoundItem file = _access.find(folder.number(), "file");
  EXPECT_EQ(beginOf(_access.openFound(folder.number(), "file", file)), "first");
  // Another file, and then a link, in its place: the first one or none is opened.
  fs::rename(_folder + "/file", _folder + "/moved");
  const auto expectFirstOrNone = [&] {
    const Descriptor opened = _access.openFound(folder.number(), "file", file);
    if (opened.isOpen()) {
      EXPECT_EQ(beginOf(opened), "first");
    }
  };
  std::ofstream(_folder + "/file") << "second";
  expectFirstOrNone();
  fs::remove(_folder + "/file");
  fs::create_symlink(_temporary.path(), _folder + "/file");
  expectFirstOrNone();
  fs::remove(_folder + "/file");
  expectFirstOrNone();
}

TEST_P(BeneathResolverTest, DoesNotWaitForAPipe) {
  const Descriptor folder = _access.openFolder(_folder);
  ASSERT_EQ(::mkfifo((_folder + "/pipe").c_str(), 0600), 0);
  const FoundItem pipe = _access.find(folder.number(), "pipe");
  EXPECT_TRUE(S_ISFIFO(pipe.status.st_mode));
  EXPECT_TRUE(_access.openFound(folder.number(), "pipe", pipe).isOpen());
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

}  // namespace
}  // namespace ravelin::platform
