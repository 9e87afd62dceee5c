#include "base/TextSearch.h"

#include <gtest/gtest.h>

#include <string_view>

namespace ravelin {
namespace {

constexpr std::string_view TEXT = "abcabcabd";

TEST(TextSearchTest, FindsWhatThePlainSearchFinds) {
  for (const std::string_view sought : {"a", "abd", "abcabd", "d", "x", "abcabcabdx", ""}) {
    for (std::size_t from = 0; from < TEXT.size(); ++from) {
      EXPECT_EQ(TextSearch(sought).in(TEXT, from), TEXT.find(sought, from)) << sought << from;
    }
  }
}

TEST(TextSearchTest, NothingIsInTheEmptyText) {
  EXPECT_EQ(TextSearch("a").in(""), std::string_view::npos);
  EXPECT_EQ(TextSearch("").in(""), std::string_view::npos);
}

}  // namespace
}  // namespace ravelin
