#include "base/PathComponents.h"

#include <gtest/gtest.h>

namespace ravelin {
namespace {

TEST(PathComponentsTest, TheLastComponent) {
  EXPECT_EQ(lastPathComponent("/media/USB Disk"), "USB Disk");
  EXPECT_EQ(lastPathComponent("/media/USB Disk///"), "USB Disk");
  EXPECT_EQ(lastPathComponent("USB"), "USB");
  EXPECT_EQ(lastPathComponent("USB/"), "USB");
  EXPECT_EQ(lastPathComponent("/USB"), "USB");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("//"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

}  // namespace
}  // namespace ravelin
