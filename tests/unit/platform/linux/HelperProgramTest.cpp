#include "platform/linux/HelperProgram.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "support/TemporaryDirectory.h"
#include "support/linux/OwnMounts.h"

namespace ravelin::platform {
namespace {

constexpr std::chrono::seconds LIMIT{10};

TEST(HelperProgramTest, RunsNothingFromTheWorkingFolderWhereThisProgramsPlaceIsUnknown) {
  const test::TemporaryDirectory directory;
  std::filesystem::create_symlink("/bin/true", directory.path() + "/helper");
  EXPECT_EXIT(
      {
        if (::chdir(directory.path().c_str()) != 0 || !test::ownMounts() ||
            !test::mountMemory("/proc")) {
          ::_exit(1);
        }
        try {
          static_cast<void>(HelperProgram("helper").run({}, LIMIT));
        } catch (const LaunchException&) {
          ::_exit(7);
        }
        ::_exit(1);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace ravelin::platform
