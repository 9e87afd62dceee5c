#include "base/Utf8.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace ravelin {
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

TEST(Utf8, ACharacterHasItsLengthAndAnythingElseNone) {
  EXPECT_EQ(characterLength(""), 0U);
  EXPECT_EQ(characterLength("ab"), 1U);
  EXPECT_EQ(characterLength("\xC3\xBC\xC3\xBC"), 2U);
  EXPECT_EQ(characterLength("\xE2\x82\xAC and more"), 3U);
  EXPECT_EQ(characterLength("\xF0\x9F\x92\xBE"), 4U);
  EXPECT_EQ(characterLength("\xE2\x82"), 0U);
  EXPECT_EQ(characterLength("\xBC"), 0U);
}

TEST(Utf8, ABeginningHasNoHalfCharacterAtItsEnd) {
  const std::string text = "a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x92\xBE.";
  const std::size_t lengths[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
  for (std::size_t limit = 0; limit < std::size(lengths); ++limit) {
    EXPECT_EQ(beginningOf(text, limit), text.substr(0, lengths[limit])) << limit;
  }
}

TEST(Utf8, ABeginningOfWhatIsNoTextIsCutAtTheLimit) {
  const std::string stray(20, '\x80');
  EXPECT_EQ(beginningOf(stray, 7), stray.substr(0, 7));
  EXPECT_EQ(beginningOf("\xE2\x82\x41\x41", 2), "\xE2\x82");
}

}  // namespace
}  // namespace ravelin
