#include "disk/TextHash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace ravelin {
namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

std::string hashLine() {
  return "hash " + std::to_string(TextHash()("the same text in every process")) + "\n";
}

TEST(TextHashTest, EqualTextsHaveEqualHashes) {
  const std::string text = "1234-ABCD";
  EXPECT_EQ(TextHash()(text), TextHash()("1234-ABCD"));
  EXPECT_EQ(TextHash()(std::string_view(text + "tail").substr(0, text.size())), TextHash()(text));
  EXPECT_EQ(TextHash()(std::string_view()), TextHash()(""));
}

TEST(TextHashTest, EveryByteOfATextCounts) {
  const std::string withNul("a\0b", 3);
  EXPECT_NE(TextHash()(withNul), TextHash()("a"));
  EXPECT_NE(TextHash()(""), TextHash()(std::string_view("\0", 1)));
  const std::string longText(4000, 'x');
  for (const std::size_t place : {0U, 239U, 240U, 1023U, 1024U, 3999U}) {
    std::string other = longText;
    other[place] = 'y';
    EXPECT_NE(TextHash()(longText), TextHash()(other)) << "at " << place;
  }
}

TEST(TextHashTest, ManyTextsHaveHashesOfTheirOwn) {
  std::set<std::size_t> hashes;
  for (int number = 0; number < 20000; ++number) {
    hashes.insert(TextHash()(std::to_string(number)));
  }
  EXPECT_GE(hashes.size(), 19990U);
}

TEST(TextHashDeathTest, AnotherProcessHashesOtherwise) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // The other process states its hash; this process matches against its own.
  EXPECT_EXIT(
      {
        std::fputs(hashLine().c_str(), stderr);
        std::exit(0);
      },
      ExitedWithCode(0), testing::AllOf(HasSubstr("hash "), Not(HasSubstr(hashLine()))));
}

}  // namespace
}  // namespace ravelin
