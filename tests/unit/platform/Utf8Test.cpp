#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin::platform {
namespace {

/// The form that the code point has, well-formed or not, with the given number of bytes.
std::string encoded(std::uint32_t code, int bytes) {
  if (bytes == 1) {
    return {static_cast<char>(code)};
  }
  std::string tail;
  for (int index = 1; index < bytes; ++index) {
    tail.insert(tail.begin(), static_cast<char>(0x80U | (code & 0x3FU)));
    code >>= 6U;
  }
  constexpr std::uint32_t LEADS[] = {0, 0, 0xC0, 0xE0, 0xF0};
  return static_cast<char>(LEADS[bytes] | code) + tail;
}

int shortestForm(std::uint32_t code) {
  if (code < 0x80) {
    return 1;
  }
  if (code < 0x800) {
    return 2;
  }
  return code < 0x10000 ? 3 : 4;
}

TEST(Utf8, ExactlyTheShortestFormsOfAllCodePointsButSurrogatesAreWellFormed) {
  for (std::uint32_t code = 0; code < 0x120000; ++code) {
    const bool exists = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    for (int bytes = shortestForm(code); bytes <= 4; ++bytes) {
      ASSERT_EQ(isUtf8(encoded(code, bytes)), exists && bytes == shortestForm(code))
          << "U+" << std::hex << code << " in " << bytes << " bytes";
    }
  }
}

TEST(Utf8, CutAndStrayBytesAreNot) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("plain, gr\xC3\xBC\xC3\x9F\x65, \xE2\x82\xAC"));
  EXPECT_FALSE(isUtf8("cut \xE2\x82"));
  EXPECT_FALSE(isUtf8("\xE2\x82\x41"));
  EXPECT_FALSE(isUtf8("\x80"));
  EXPECT_FALSE(isUtf8("\xFF"));
}

}  // namespace
}  // namespace ravelin::platform
