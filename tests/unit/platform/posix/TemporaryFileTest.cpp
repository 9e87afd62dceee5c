#include "platform/posix/TemporaryFile.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin::platform {
namespace {

using Purpose = TemporaryFile::Purpose;

TEST(TemporaryFileTest, FreshNamesAreKnownByTheirPurpose) {
  for (const Purpose purpose : {Purpose::content, Purpose::removal}) {
    const std::string name = TemporaryFile::freshName(purpose);
    EXPECT_NE(name, TemporaryFile::freshName(purpose));
    EXPECT_TRUE(TemporaryFile::isFreshName(name)) << name;
    EXPECT_EQ(TemporaryFile::isFreshName(name, Purpose::content), purpose == Purpose::content);
    EXPECT_EQ(TemporaryFile::isFreshName(name, Purpose::removal), purpose == Purpose::removal);
  }
}

TEST(TemporaryFileTest, OtherNamesAreNotFresh) {
  for (const char* const name :
       {"", ".ravelin-disk-", ".ravelin-disk-1", ".ravelin-disk-1-", ".ravelin-disk--1",
        ".ravelin-disk-1-2-3", ".ravelin-disk-1-2 ", ".ravelin-disk-1-x", ".ravelin-disk-x-1",
        "ravelin-disk-1-2", "..ravelin-disk-1-2", ".ravelin-disk-removal-", ".ravelin-disk-+1-2",
        ".ravelin-disk-removal-1"}) {
    EXPECT_FALSE(TemporaryFile::isFreshName(name)) << name;
  }
}

}  // namespace
}  // namespace ravelin::platform
