#include "platform/linux/gvfs/PathUsers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/posix/Descriptor.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

/// Another process, which has done this and waits then.
class OtherProcess {
 public:
  template <class Preparation>
  explicit OtherProcess(Preparation prepare) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    _pid = ::fork();
    if (_pid == 0) {
      prepare();
      static_cast<void>(::write(ends[1], "", 1));
      for (;;) {
        ::pause();
      }
    }
    writeEnd.close();
    char ready = 0;
    EXPECT_EQ(::read(ends[0], &ready, 1), 1);
  }
  ~OtherProcess() {
    ::kill(_pid, SIGKILL);
    ::waitpid(_pid, nullptr, 0);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  [[nodiscard]] pid_t pid() const { return _pid; }

 private:
  pid_t _pid = -1;
};

class PathUsersTest : public testing::Test {
 protected:
  PathUsersTest() {
    fs::create_directories(_place + "/folder");
    fs::create_directories(_place + "2");
    std::ofstream(_place + "/folder/file") << "x";
    std::ofstream(_place + "2/file") << "x";
  }

  void expectOne(const OtherProcess& process, const std::string& item, bool isOpen) const {
    const auto users = usersOf(_place);
    ASSERT_EQ(users.size(), 1U);
    EXPECT_EQ(users[0].process, process.pid());
    std::string name;
    std::getline(std::ifstream("/proc/self/comm"), name);
    EXPECT_EQ(users[0].program, name);
    EXPECT_EQ(users[0].item, item);
    EXPECT_EQ(users[0].isOpen, isOpen);
  }

  const test::TemporaryDirectory _directory;
  const std::string _place = fs::canonical(_directory.path()).string() + "/place";
};

TEST_F(PathUsersTest, NobodyUsesAFreshFolder) {
  EXPECT_THAT(usersOf(_place), IsEmpty());
  EXPECT_THAT(usersOf("/nowhere"), IsEmpty());
}

TEST_F(PathUsersTest, AnOpenFileIsSeen) {
  const OtherProcess process([this] { ::open((_place + "/folder/file").c_str(), O_RDONLY); });
  expectOne(process, "/folder/file", true);
}

TEST_F(PathUsersTest, AnOpenFileThatIsGoneIsSeen) {
  const OtherProcess process([this] {
    ::open((_place + "/folder/file").c_str(), O_RDONLY);
    ::unlink((_place + "/folder/file").c_str());
  });
  expectOne(process, "/folder/file (deleted)", true);
}

TEST_F(PathUsersTest, AWorkingDirectoryIsSeen) {
  const OtherProcess process([this] { fs::current_path(_place + "/folder"); });
  expectOne(process, "/folder", false);
}

TEST_F(PathUsersTest, ThePathItselfIsSeen) {
  const OtherProcess process([this] { ::open(_place.c_str(), O_RDONLY | O_DIRECTORY); });
  expectOne(process, "", true);
}

TEST_F(PathUsersTest, APathThatBeginsAlikeIsAnother) {
  const OtherProcess process([this] {
    ::open((_place + "2/file").c_str(), O_RDONLY);
    fs::current_path(_place + "2");
  });
  EXPECT_THAT(usersOf(_place), IsEmpty());
}

TEST_F(PathUsersTest, TheCallingProcessIsLeftOut) {
  const Descriptor file(::open((_place + "/folder/file").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(file.isOpen());
  EXPECT_THAT(usersOf(_place), IsEmpty());
}

TEST(PathUsersDescriptionTest, TheFirstOnesAreNamed) {
  const PathUser writer{.process = 7, .program = "cat", .item = "/a/b", .isOpen = true};
  const PathUser shell{.process = 8, .program = "sh", .item = "", .isOpen = false};
  const PathUser ended{.process = 9, .program = "", .item = "", .isOpen = true};
  EXPECT_EQ(described({}), "");
  EXPECT_EQ(described({writer}), "cat (pid 7) has /a/b open");
  EXPECT_EQ(described({writer, shell, ended}),
            "cat (pid 7) has /a/b open, sh (pid 8) works in /, a program (pid 9) has / open");
  EXPECT_THAT(described({shell, shell, writer, shell, shell}),
              testing::EndsWith(", cat (pid 7) has /a/b open and 2 more"));
}

}  // namespace
}  // namespace ravelin::platform
