#include "disk/HashIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <random>
#include <utility>
#include <vector>

namespace ravelin {
namespace {

std::vector<int*> itemsWith(const HashIndex<int>& index, std::uint64_t hash) {
  std::vector<int*> items;
  index.forEach(hash, [&](int& item) { items.push_back(&item); });
  std::ranges::sort(items);
  return items;
}

/// Items with few different hashes, which crowd at both ends of the table, come and go.
TEST(HashIndexTest, FindsWhatAPlainListHolds) {
  constexpr unsigned SEED = 912;
  std::mt19937 random(SEED);
  HashIndex<int> index;
  std::list<int> items;
  std::vector<std::pair<std::uint64_t, int*>> plain;
  const auto anyHash = [&] { return std::uint64_t{0} - 12 + random() % 24; };
  for (int round = 0; round < 20000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    const bool growing = round / 100 % 2 == 0;
    if (random() % 4 < (growing ? 3U : 1U)) {
      const std::uint64_t hash = anyHash();
      plain.emplace_back(hash, &items.emplace_back(round));
      index.insert(hash, items.back());
    } else if (!plain.empty()) {
      const auto at = plain.begin() + static_cast<std::ptrdiff_t>(random() % plain.size());
      index.erase(at->first, *at->second);
      plain.erase(at);
    }
    const std::uint64_t hash = anyHash();
    std::vector<int*> expected;
    for (const auto& [itsHash, item] : plain) {
      if (itsHash == hash) {
        expected.push_back(item);
      }
    }
    std::ranges::sort(expected);
    ASSERT_EQ(itemsWith(index, hash), expected);
  }
}

TEST(HashIndexTest, AnItemThatIsNotThereIsNotTakenOut) {
  HashIndex<int> index;
  int one = 1;
  int other = 2;
  index.erase(7, one);
  index.insert(7, one);
  index.erase(7, other);
  EXPECT_EQ(itemsWith(index, 7), std::vector<int*>{&one});
}

TEST(HashIndexTest, ManyItemsComeAndGo) {
  std::vector<int> items(10000);
  HashIndex<int> index;
  for (int round = 0; round < 2; ++round) {
    for (std::size_t number = 0; number < items.size(); ++number) {
      index.insert(number * 0x9e3779b97f4a7c15U, items[number]);
    }
    for (std::size_t number = 0; number < items.size(); ++number) {
      const std::uint64_t hash = number * 0x9e3779b97f4a7c15U;
      ASSERT_EQ(itemsWith(index, hash), std::vector<int*>{&items[number]});
      index.erase(hash, items[number]);
      ASSERT_TRUE(itemsWith(index, hash).empty());
    }
  }
}

}  // namespace
}  // namespace ravelin
