#include "disk/HashTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

namespace ravelin {
namespace {

/// A value that remembers its hash. The default one stands for none.
struct Item {
  int number = 0;
  std::size_t hash = 0;
  explicit operator bool() const { return number != 0; }
  bool operator==(const Item&) const = default;
};

auto is(int number) {
  return [number](const Item& item) { return item.number == number; };
}

TEST(HashTableTest, NothingIsFoundInAnEmptyTable) {
  HashTable<Item> table;
  EXPECT_EQ(table.find(1, is(1)), nullptr);
  table.erase(1, is(1));
  EXPECT_EQ(table.find(1, is(1)), nullptr);
}

TEST(HashTableTest, AValueIsFoundByItsHashAndByBeingAccepted) {
  HashTable<Item> table;
  table.insert(7, {.number = 1, .hash = 7});
  ASSERT_NE(table.find(7, is(1)), nullptr);
  EXPECT_EQ(table.find(7, is(1))->number, 1);
  EXPECT_EQ(table.find(7, is(2)), nullptr);
  EXPECT_EQ(table.find(8, is(1)), nullptr);
}

TEST(HashTableTest, AFoundValueCanBeChanged) {
  HashTable<Item> table;
  table.insert(7, {.number = 1, .hash = 7});
  table.find(7, is(1))->number = 2;
  EXPECT_EQ(table.find(7, is(1)), nullptr);
  EXPECT_NE(table.find(7, is(2)), nullptr);
}

TEST(HashTableTest, EqualValuesAreTakenOutOneByOne) {
  HashTable<Item> table;
  table.insert(7, {.number = 1, .hash = 7});
  table.insert(7, {.number = 1, .hash = 7});
  table.erase(7, is(1));
  EXPECT_NE(table.find(7, is(1)), nullptr);
  table.erase(7, is(1));
  EXPECT_EQ(table.find(7, is(1)), nullptr);
}

TEST(HashTableTest, AFullTableCanBeEmptiedAndFilledAgain) {
  constexpr int MANY = 20000;
  HashTable<Item> table;
  for (int round = 0; round < 2; ++round) {
    for (int number = 1; number <= MANY; ++number) {
      table.insert(static_cast<std::size_t>(number), {.number = number});
    }
    for (int number = 1; number <= MANY; ++number) {
      ASSERT_NE(table.find(static_cast<std::size_t>(number), is(number)), nullptr);
      table.erase(static_cast<std::size_t>(number), is(number));
      ASSERT_EQ(table.find(static_cast<std::size_t>(number), is(number)), nullptr);
    }
  }
}

/// The hashes crowd at the end of the table, so that its places are contested and the search for
/// one goes on at the beginning.
TEST(HashTableTest, AnswersWhatAPlainListAnswers) {
  constexpr unsigned SEED = 4711;
  std::mt19937 random(SEED);
  HashTable<Item> table;
  std::vector<Item> plain;
  int next = 1;
  for (int round = 0; round < 60000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", round " << round);
    const bool growing = round / 60 % 2 == 0;
    if (random() % 4 < (growing ? 3U : 1U) || plain.empty()) {
      const Item item{.number = next++, .hash = std::size_t{0} - random() % 12};
      table.insert(item.hash, item);
      plain.push_back(item);
    } else {
      const auto victim = plain.begin() + static_cast<std::ptrdiff_t>(random() % plain.size());
      table.erase(victim->hash, is(victim->number));
      ASSERT_EQ(table.find(victim->hash, is(victim->number)), nullptr);
      plain.erase(victim);
    }
    for (const Item& item : plain) {
      const Item* const found = table.find(item.hash, is(item.number));
      ASSERT_NE(found, nullptr);
      ASSERT_EQ(*found, item);
    }
    const std::size_t hash = std::size_t{0} - random() % 12;
    const bool expected =
        std::ranges::any_of(plain, [&](const Item& item) { return item.hash == hash; });
    ASSERT_EQ(table.find(hash, [](const Item&) { return true; }) != nullptr, expected);
  }
}

}  // namespace
}  // namespace ravelin
