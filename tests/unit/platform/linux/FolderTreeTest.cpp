#include "platform/posix/FolderTree.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/posix/Descriptor.h"
#include "support/TemporaryDirectory.h"
#include "support/linux/OwnMounts.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

TEST(FolderTreeDeathTest, WhatIsMountedInTheTreeIsNotEntered) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const test::TemporaryDirectory temporary;
  EXPECT_EXIT(
      {
        const std::string mounted = temporary.path() + "/tree/mounted";
        fs::create_directories(mounted);
        bool isRight = test::ownMounts() && test::mountMemory(mounted);
        std::ofstream(mounted + "/kept") << "content";
        const Descriptor folder(
            ::open(temporary.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        isRight &= removeTree(folder.number(), "tree") == EXDEV;
        isRight &= fs::exists(mounted + "/kept");
        std::_Exit(isRight ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ravelin::platform
