#include "disk/AliasData.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace ravelin {
namespace {

TEST(AliasDataTest, IsCreatedEmptyAndKeepsWhatItIsGiven) {
  AliasData data;
  EXPECT_EQ(data.aliasName(), std::nullopt);
  EXPECT_EQ(data.volumePath(), std::nullopt);
  data.setAliasName("USB Disk");
  data.setVolumePath("/media/USB Disk");
  EXPECT_EQ(data.aliasName(), "USB Disk");
  EXPECT_EQ(data.volumePath(), "/media/USB Disk");
  data.setAliasName("");
  data.setVolumePath(std::nullopt);
  EXPECT_EQ(data.aliasName(), "");
  EXPECT_EQ(data.volumePath(), std::nullopt);
}

TEST(AliasDataTest, LaterChangesOfAGivenTextDoNotReachIt) {
  Text name = "USB";
  AliasData data;
  data.setAliasName(name);
  name->append("DISK");
  EXPECT_EQ(data.aliasName(), "USB");
}

TEST(AliasDataTest, TextsAreReadWholeWhileAnotherThreadSetsThem) {
  const std::string one(100, 'a');
  const std::string other(200, 'b');
  AliasData data;
  data.setAliasName(one);
  data.setVolumePath(one);
  std::jthread writer([&](const std::stop_token& stopped) {
    while (!stopped.stop_requested()) {
      for (const std::string& text : {other, one}) {
        data.setAliasName(text);
        data.setVolumePath(text);
      }
    }
  });
  for (int round = 0; round < 20000; ++round) {
    for (const Text& read : {data.aliasName(), data.volumePath()}) {
      ASSERT_TRUE(read == one || read == other);
    }
  }
}

}  // namespace
}  // namespace ravelin
