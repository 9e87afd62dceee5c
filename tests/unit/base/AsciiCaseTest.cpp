#include "base/AsciiCase.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin {
namespace {

TEST(AsciiCase, OnlyTheLettersOfAsciiAreLetters) {
  std::string letters;
  for (int code = 0; code <= 0xFF; ++code) {
    const char character = static_cast<char>(code);
    letters += isAsciiLetter(character) ? std::string{character} : "";
  }
  EXPECT_EQ(letters, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

TEST(AsciiCase, TextsThatDifferInTheCaseOfLettersAreEqual) {
  EXPECT_TRUE(equalButForCase("", ""));
  EXPECT_TRUE(equalButForCase("USB%20Disk", "usb%20dISK"));
  EXPECT_FALSE(equalButForCase("USB", "USB2"));
  EXPECT_FALSE(equalButForCase("USB2", "USB"));
  EXPECT_FALSE(equalButForCase("USB", "USC"));
}

TEST(AsciiCase, NothingButLettersHasACase) {
  // Each pair has the distance of an upper from a lower case letter.
  EXPECT_FALSE(equalButForCase("@", "`"));
  EXPECT_FALSE(equalButForCase("[", "{"));
  EXPECT_FALSE(equalButForCase("\x10", "0"));
  EXPECT_FALSE(equalButForCase("\303\204", "\303\244"));
}

}  // namespace
}  // namespace ravelin
