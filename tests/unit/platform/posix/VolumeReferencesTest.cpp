#include "platform/posix/VolumeReferences.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace ravelin::platform {
namespace {

constexpr int ALL = 32767;

std::string numberedPath(int number) { return std::string("/").append(std::to_string(number)); }

bool everything(const std::string& /*path*/) { return true; }
bool nothing(const std::string& /*path*/) { return false; }

TEST(VolumeReferencesTest, ANumberStandsForItsPath) {
  VolumeReferences references;
  EXPECT_EQ(references.pathOf(0), std::nullopt);
  EXPECT_EQ(references.pathOf(1), std::nullopt);
  EXPECT_EQ(references.give("/a", everything), 1);
  EXPECT_EQ(references.give("/b", everything), 2);
  EXPECT_EQ(references.pathOf(1), "/a");
  EXPECT_EQ(references.pathOf(2), "/b");
  EXPECT_EQ(references.pathOf(-1), std::nullopt);
}

TEST(VolumeReferencesTest, AVolumeThatIsMountedAgainGetsAnotherNumber) {
  VolumeReferences references;
  EXPECT_EQ(references.give("/a", everything), 1);
  EXPECT_EQ(references.give("/a", everything), 2);
  EXPECT_EQ(references.pathOf(1), std::nullopt);
  EXPECT_EQ(references.pathOf(2), "/a");
}

TEST(VolumeReferencesTest, WhatIsMountedHasOneNumber) {
  VolumeReferences references;
  EXPECT_EQ(references.numberOf("/a", everything), 1);
  EXPECT_EQ(references.numberOf("/b", everything), 2);
  EXPECT_EQ(references.numberOf("/a", everything), 1);
  EXPECT_EQ(references.pathOf(1), "/a");
  EXPECT_EQ(references.give("/a", everything), 3);
  EXPECT_EQ(references.numberOf("/a", everything), 3);
}

TEST(VolumeReferencesTest, NumbersGoRound) {
  VolumeReferences references;
  for (int round = 0; round < 2; ++round) {
    for (int expected = 1; expected <= ALL; ++expected) {
      ASSERT_EQ(references.give(numberedPath(expected), nothing), expected);
    }
  }
}

TEST(VolumeReferencesTest, ANumberIsNotGivenWhileItsVolumeIsMounted) {
  VolumeReferences references;
  const auto kept = [](const std::string& path) { return path == "/kept"; };
  ASSERT_EQ(references.give("/first", kept), 1);
  ASSERT_EQ(references.give("/kept", kept), 2);
  std::set<std::int16_t> given;
  for (int round = 0; round < 2 * ALL; ++round) {
    given.insert(references.give(numberedPath(round), kept));
  }
  EXPECT_EQ(given.size(), ALL - 1U);
  EXPECT_FALSE(given.contains(2));
  EXPECT_FALSE(given.contains(0));
  EXPECT_EQ(references.pathOf(2), "/kept");
}

TEST(VolumeReferencesTest, WhenAllAreMountedNoneIsLeft) {
  VolumeReferences references;
  for (int count = 1; count <= ALL; ++count) {
    ASSERT_EQ(references.give(numberedPath(count), everything), count);
  }
  EXPECT_EQ(references.give("/one too many", everything), 0);
  EXPECT_EQ(references.pathOf(1), "/1");
  EXPECT_EQ(references.give("/another", nothing), 1);
}

}  // namespace
}  // namespace ravelin::platform
