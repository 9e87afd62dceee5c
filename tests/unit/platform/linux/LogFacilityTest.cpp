#include "platform/linux/LogFacility.h"

#include <gtest/gtest.h>

namespace ravelin::platform {
namespace {

TEST(LogFacilityTest, KnowsFacilitiesByTheirNames) {
  EXPECT_EQ(logFacility("kern"), 0);
  EXPECT_EQ(logFacility("user"), 1);
  EXPECT_EQ(logFacility("Daemon"), 3);
  EXPECT_EQ(logFacility("DAEMON"), 3);
  EXPECT_EQ(logFacility("ftp"), 11);
  EXPECT_EQ(logFacility("local0"), 16);
  EXPECT_EQ(logFacility("Local7"), 23);
}

TEST(LogFacilityTest, TakesAnyOtherNameForDaemon) {
  for (const char* name : {"", "no such facility", "daemons", "daemo", "local8"}) {
    EXPECT_EQ(logFacility(name), 3) << name;
  }
}

}  // namespace
}  // namespace ravelin::platform
