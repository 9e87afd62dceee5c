#include "base/KeyedHash.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

namespace ravelin {
namespace {

std::uint64_t hashOf(std::string_view one, std::string_view other) {
  KeyedHash hash;
  hash.add(one);
  hash.add(other);
  return hash.take();
}

/// What another implementation makes of "1234567" and of "abcdefghijklmno" under the key 0. It ends
/// a text with its length in the last byte of the last word.
TEST(KeyedHashTest, ItIsSipHashWithOneAndThreeRounds) {
  KeyedHash one({0, 0});
  one.add(std::uint64_t{0x0737363534333231});
  EXPECT_EQ(one.take(), 0xa33d651594fdae81U);
  KeyedHash two({0, 0});
  two.add(std::uint64_t{0x6867666564636261});
  two.add(std::uint64_t{0x0f6f6e6d6c6b6a69});
  EXPECT_EQ(two.take(), 0x1fd27a29b0e9dc7aU);
}

TEST(KeyedHashTest, ATextIsItsLengthAndItsBytes) {
  KeyedHash text({1, 2});
  text.add("abcdefghij");
  KeyedHash words({1, 2});
  words.add(std::uint64_t{10});
  words.add(std::uint64_t{0x6867666564636261});
  words.add(std::uint64_t{0x6a69});
  EXPECT_EQ(text.take(), words.take());
}

TEST(KeyedHashTest, TheKeyAndTheBordersOfTheTextsCount) {
  EXPECT_EQ(hashOf("ab", "c"), hashOf("ab", "c"));
  EXPECT_NE(hashOf("ab", "c"), hashOf("a", "bc"));
  EXPECT_NE(hashOf(std::string(1, '\0'), ""), hashOf("", std::string(1, '\0')));
  KeyedHash one({1, 0});
  KeyedHash other({0, 1});
  EXPECT_NE(one.take(), other.take());
}

TEST(KeyedHashTest, TextsThatDifferInOneBitHaveDifferentHashes) {
  std::string text(100, 'x');
  std::set<std::uint64_t> hashes{hashOf(text, "")};
  for (std::size_t bit = 0; bit < 8 * text.size(); ++bit) {
    std::string other = text;
    other[bit / 8] = static_cast<char>(other[bit / 8] ^ (1 << bit % 8));
    hashes.insert(hashOf(other, ""));
  }
  EXPECT_EQ(hashes.size(), 801U);
}

}  // namespace
}  // namespace ravelin
