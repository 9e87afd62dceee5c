#include "base/LogLine.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin {
namespace {

TEST(LogLineTest, KeepsLineThatIsNotTooLong) {
  EXPECT_EQ(cutLogLine(""), "");
  const std::string longest(LOG_LINE_LIMIT, 'x');
  EXPECT_EQ(cutLogLine(longest), longest);
}

TEST(LogLineTest, CutsLongerLineWithAMark) {
  const std::string cut = std::string(LOG_LINE_LIMIT - 6, 'x').append(" [cut]");
  EXPECT_EQ(cutLogLine(std::string(LOG_LINE_LIMIT + 1, 'x')), cut);
  EXPECT_EQ(cutLogLine(std::string(3 * LOG_LINE_LIMIT, 'x')), cut);
  EXPECT_EQ(cutLogLine("123456789", 8), "12 [cut]");
}

TEST(LogLineTest, CutsNoCharacterInTwo) {
  const std::string euro = "\xE2\x82\xAC";
  EXPECT_EQ(cutLogLine(euro + euro + euro, 8), " [cut]");
  EXPECT_EQ(cutLogLine(euro + euro + euro + euro, 9), euro + " [cut]");
  EXPECT_EQ(cutLogLine(euro + euro + euro + euro, 11), euro + " [cut]");
}

}  // namespace
}  // namespace ravelin
