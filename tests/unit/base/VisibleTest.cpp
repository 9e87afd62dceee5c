#include "base/Visible.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace ravelin {
namespace {

using namespace std::string_literals;

TEST(VisibleTest, ShowsWhatIsNotPrintableAscii) {
  EXPECT_EQ(visible("plain 'text' ~"), "plain 'text' ~");
  EXPECT_EQ(visible("a\nb\rc\td\\n"), "a\\nb\\rc\\td\\\\n");
  EXPECT_EQ(visible("\0\x01\x1B\x7F\x80\xFF"s), "\\x00\\x01\\x1b\\x7f\\x80\\xff");
  EXPECT_EQ(visible("\xC3\xBC"), "\\xc3\\xbc");
}

TEST(VisibleLinesTest, FurtherLinesBeginWithTabs) {
  EXPECT_EQ(visibleLines(""), "");
  EXPECT_EQ(visibleLines("one\ntwo\n\nfour"), "one\n\ttwo\n\t\n\tfour");
  EXPECT_EQ(visibleLines("\n"), "\n\t");
  EXPECT_EQ(visibleText("one\ntwo\n\x1B"), "one\ntwo\n\\x1b");
}

TEST(VisibleLinesTest, ShowsControlCharacters) {
  EXPECT_EQ(visibleLines("\x1B[31mred\a\r\t\b\x7F\0"s), "\\x1b[31mred\\x07\\r\\t\\x08\\x7f\\x00");
  EXPECT_EQ(visibleLines("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0"),
            "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f\xC2\xA0");
}

TEST(VisibleLinesTest, KeepsTextReadable) {
  const std::string text = "a\\b gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x92\xBE";
  EXPECT_EQ(visibleLines(text), text);
}

TEST(VisibleLinesTest, ShowsBytesThatAreNoCharacter) {
  EXPECT_EQ(visibleLines("\xFF \xC3 \x80 \xE2\x82"), "\\xff \\xc3 \\x80 \\xe2\\x82");
  EXPECT_EQ(visibleLines("\xC0\x8A"), "\\xc0\\x8a");
}

TEST(VisibleLineTest, IsOneLineOfReadableText) {
  EXPECT_EQ(visibleLine(""), "");
  EXPECT_EQ(visibleLine("a\\b gr\xC3\xBC\xC3\x9F\x65 \xF0\x9F\x92\xBE"),
            "a\\b gr\xC3\xBC\xC3\x9F\x65 \xF0\x9F\x92\xBE");
  EXPECT_EQ(visibleLine("one\ntwo\r\n\t\x1B[m\xC2\x85\0"s),
            "one\\ntwo\\r\\n\\t\\x1b[m\\xc2\\x85\\x00");
  EXPECT_EQ(visibleLine("\xE2\x82 \xED\xA0\x80"), "\\xe2\\x82 \\xed\\xa0\\x80");
}

TEST(VisibleTest, DifferentTextsLookDifferent) {
  std::set<std::string> seen;
  std::size_t count = 0;
  const std::string characters = "\\nrtx0a1b\n\r\t\x1B\n\t\x80\xC2\xE2\x82\xAC";
  for (const char first : std::set<char>(characters.begin(), characters.end())) {
    for (const char second : std::set<char>(characters.begin(), characters.end())) {
      for (const char third : std::set<char>(characters.begin(), characters.end())) {
        seen.insert(visible(std::string{first, second, third}));
        ++count;
      }
    }
  }
  EXPECT_EQ(seen.size(), count);
}

}  // namespace
}  // namespace ravelin
