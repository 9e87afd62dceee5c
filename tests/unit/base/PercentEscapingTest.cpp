#include "base/PercentEscaping.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin {
namespace {

TEST(PercentEscapingTest, WhatMayStandInAUrlStays) {
  const std::string allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!$&'()*+,-./:;=?@_~";
  EXPECT_EQ(addingPercentEscapes(allowed), allowed);
  EXPECT_EQ(addingPercentEscapes(""), "");
}

TEST(PercentEscapingTest, EveryOtherAsciiCharacterIsEscaped) {
  EXPECT_EQ(addingPercentEscapes(std::string("\0\x01\x1f\x7f", 4)), "%00%01%1F%7F");
  EXPECT_EQ(addingPercentEscapes(" \"#%<>[\\]^`{|}"), "%20%22%23%25%3C%3E%5B%5C%5D%5E%60%7B%7C%7D");
}

TEST(PercentEscapingTest, ATextBeyondAsciiCannotBeEscaped) {
  EXPECT_EQ(addingPercentEscapes("\xc3\xbc"), std::nullopt);
  EXPECT_EQ(addingPercentEscapes("a\x80"), std::nullopt);
}

TEST(PercentEscapingTest, RemovingUndoesAdding) {
  std::string everything;
  for (int character = 0; character < 0x80; ++character) {
    everything += static_cast<char>(character);
  }
  EXPECT_EQ(removingPercentEscapes(addingPercentEscapes(everything).value_or("")), everything);
}

TEST(PercentEscapingTest, WhatIsNoEscapeStays) {
  EXPECT_EQ(removingPercentEscapes("%"), "%");
  EXPECT_EQ(removingPercentEscapes("a%2"), "a%2");
  EXPECT_EQ(removingPercentEscapes("%%20"), "% ");
  EXPECT_EQ(removingPercentEscapes("%+1%-1% 1%0x%zz"), "%+1%-1% 1%0x%zz");
  EXPECT_EQ(removingPercentEscapes("%c3%BC"), "\xc3\xbc");
}

}  // namespace
}  // namespace ravelin
