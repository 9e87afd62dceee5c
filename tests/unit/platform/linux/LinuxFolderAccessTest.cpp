#include "platform/linux/LinuxFolderAccess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/BeneathResolverTest.h"
#include "platform/posix/StepwiseAccess.h"
#include "support/linux/OwnMounts.h"
#include "support/linux/WithheldCall.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using Strategy = LinuxFolderAccess::Strategy;

const NamedAccess KERNEL{"Kernel", std::make_shared<LinuxFolderAccess>(Strategy::kernel)};
const NamedAccess STEPWISE{"Stepwise", std::make_shared<LinuxFolderAccess>(Strategy::stepwise)};

INSTANTIATE_TEST_SUITE_P(Linux, BeneathResolverTest, testing::Values(KERNEL, STEPWISE),
                         nameOfAccess);

/// From now on this process's kernel fails openat2 with the error, as an old one or a sandbox.
bool withholdKernelWalk(int error) {
  return test::withholdCall(SYS_openat2, error) &&
         ::syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0) == -1 && errno == error;
}

/// What is mounted beneath the folder.
class LinuxFolderAccessTest : public BeneathResolverTest {};

INSTANTIATE_TEST_SUITE_P(Linux, LinuxFolderAccessTest, testing::Values(KERNEL, STEPWISE),
                         nameOfAccess);

TEST_P(LinuxFolderAccessTest, EntersNoOtherMount) {
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

TEST_P(LinuxFolderAccessTest, TheFolderItselfMayBeAMount) {
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

TEST_P(LinuxFolderAccessTest, DoesNotHangWithAMountThatHangs) {
  EXPECT_EXIT(
      {
        ::alarm(60);
        const bool isRight = test::ownMounts() && test::mountHung(_folder + "/one") &&
                             errorFor("one/name") == EXDEV && errorFor("one/two/name") == EXDEV &&
                             _access.find(find("one").folder.number(), "one").error == EXDEV;
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_P(LinuxFolderAccessTest, WorksTheSameWhereTheKernelLacksItsWalk) {
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

/// The way that every POSIX system has, which knows no mounts, only file systems.
class MountsBeneathTest : public BeneathResolverTest {};

INSTANTIATE_TEST_SUITE_P(Posix, MountsBeneathTest,
                         testing::Values(NamedAccess{"Stepwise",
                                                     std::make_shared<StepwiseAccess>()}),
                         nameOfAccess);

TEST_P(MountsBeneathTest, NoOtherFileSystemIsEntered) {
  EXPECT_EXIT(
      {
        const bool isRight = test::ownMounts() && test::mountMemory(_folder + "/one") &&
                             fs::create_directory(_folder + "/one/two") &&
                             errorFor("one/name") == EXDEV && errorFor("one/two/name") == EXDEV &&
                             isAt(find("one"), _folder, "one") &&
                             _access.find(find("one").folder.number(), "one").error == EXDEV;
        ::_exit(isRight ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace ravelin::platform
