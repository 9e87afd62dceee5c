#include "platform/SystemVersion.h"

#include <gtest/gtest.h>

#include "fakes/FakeSystem.h"

namespace ravelin::platform {
namespace {

class MacSystemVersionTest : public testing::Test {
 protected:
  static std::int32_t found() { return native<SystemVersion>().gestaltSystemVersion(); }

  fakes::FakeSystem system;
};

TEST_F(MacSystemVersionTest, TheLaterOfTwoAnswersCounts) {
  system.setGestalt(0x1068);
  system.setVersion(10, 5, 0);
  EXPECT_EQ(found(), 0x1068);
  // What a system may say to a program that was built for an older one.
  system.setGestalt(0x10B0);
  system.setVersion(11, 2, 3);
  EXPECT_EQ(found(), 0x1123);
}

TEST_F(MacSystemVersionTest, WithoutGestaltTheProcessKnows) {
  system.setVersion(12, 6, 1);
  system.setGestalt(0x1310, -5550);
  EXPECT_EQ(found(), 0x1261);
  system.setGestalt(0x1310);
  EXPECT_EQ(found(), 0x1310);
  system.lose("Gestalt");
  EXPECT_EQ(found(), 0x1261);
}

TEST_F(MacSystemVersionTest, EachNumberHasAsManyDigitsAsThereIsRoomFor) {
  system.lose("Gestalt");
  system.setVersion(10, 15, 7);
  EXPECT_EQ(found(), 0x1097);
  system.setVersion(14, 7, 12);
  EXPECT_EQ(found(), 0x1479);
  system.setVersion(26, 0, 0);
  EXPECT_EQ(found(), 0x2600);
  system.setVersion(9, 2, 2);
  EXPECT_EQ(found(), 0x0922);
}

}  // namespace
}  // namespace ravelin::platform
