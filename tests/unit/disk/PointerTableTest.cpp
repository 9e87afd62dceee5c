#include "disk/PointerTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <utility>
#include <vector>

namespace ravelin {
namespace {

struct Item {
  int kind = 0;
};

/// The table and a plain list of the same items, changed alike.
class Both {
 public:
  void insert(std::size_t hash, int kind) {
    Item& item = _made.emplace_back(Item{kind});
    table.insert(hash, item);
    plain.emplace_back(hash, &item);
  }

  void eraseAt(std::size_t index) {
    table.erase(plain[index].first, *plain[index].second);
    plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(index));
  }

  void replaceAt(std::size_t index, int kind) {
    Item& item = _made.emplace_back(Item{kind});
    table.replace(plain[index].first, *plain[index].second, item);
    plain[index].second = &item;
  }

  /// What is found is right, and something is found whenever there is something to find.
  void check(std::size_t hash, int kind) const {
    const auto accepts = [kind](const Item& item) { return item.kind == kind; };
    const Item* const found = table.find(hash, accepts);
    const auto fits = [&](const std::pair<std::size_t, Item*>& entry) {
      return entry.first == hash && accepts(*entry.second);
    };
    if (found == nullptr) {
      ASSERT_TRUE(std::ranges::none_of(plain, fits));
    } else {
      ASSERT_TRUE(std::ranges::any_of(plain, [&](const std::pair<std::size_t, Item*>& entry) {
        return fits(entry) && entry.second == found;
      }));
    }
  }

  PointerTable<Item> table;
  std::vector<std::pair<std::size_t, Item*>> plain;

 private:
  std::deque<Item> _made;
};

TEST(PointerTableTest, AnEmptyTableFindsNothing) {
  const PointerTable<Item> table;
  EXPECT_EQ(table.find(0, [](const Item& /*item*/) { return true; }), nullptr);
}

TEST(PointerTableTest, OneItemMayBeInTwice) {
  PointerTable<Item> table;
  Item item;
  const auto any = [](const Item& /*item*/) { return true; };
  table.insert(5, item);
  table.insert(5, item);
  table.erase(5, item);
  EXPECT_EQ(table.find(5, any), &item);
  table.erase(5, item);
  EXPECT_EQ(table.find(5, any), nullptr);
}

TEST(PointerTableTest, CrowdedSlotsLoseNothing) {
  // Homes that are neighbours, on both sides of the table's end, whatever its size.
  const std::vector<std::size_t> hashes{
      0,  1,          2, 15, SIZE_MAX, SIZE_MAX - 1, 16, std::size_t{1} << 40U, SIZE_MAX / 2,
      31, 0x7FFFFFF0, 3};
  for (unsigned seed = 1; seed <= 30 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    Both both;
    const std::size_t target = 2 + random() % 40;
    for (int round = 0; round < 2000 && !testing::Test::HasFailure(); ++round) {
      const int kind = static_cast<int>(random() % 3);
      const std::size_t count = both.plain.size();
      if (count == 0 || random() % (2 * target) >= count) {
        both.insert(hashes[random() % hashes.size()], kind);
      } else if (random() % 4 == 0) {
        both.replaceAt(random() % count, kind);
      } else {
        both.eraseAt(random() % count);
      }
      for (const std::size_t hash : hashes) {
        for (int asked = 0; asked < 3; ++asked) {
          both.check(hash, asked);
        }
      }
    }
  }
}

TEST(PointerTableTest, ManyItemsComeAndGo) {
  constexpr unsigned SEED = 99;
  std::mt19937_64 random(SEED);
  Both both;
  for (int cycle = 0; cycle < 2; ++cycle) {
    std::vector<std::size_t> hashes;
    for (int number = 0; number < 20000; ++number) {
      hashes.push_back(random());
      both.insert(hashes.back(), number);
    }
    const auto finds = [&](int number) {
      return both.table.find(hashes[static_cast<std::size_t>(number)],
                             [number](const Item& item) { return item.kind == number; }) != nullptr;
    };
    for (int number = 0; number < 20000; ++number) {
      ASSERT_TRUE(finds(number)) << "seed " << SEED;
    }
    // The last ones go first, until the table is empty.
    while (!both.plain.empty()) {
      both.eraseAt(both.plain.size() - 1);
      const int gone = static_cast<int>(both.plain.size());
      ASSERT_FALSE(finds(gone));
      ASSERT_TRUE(gone == 0 || finds(gone - 1));
      ASSERT_TRUE(gone == 0 || finds(gone / 2));
    }
  }
}

}  // namespace
}  // namespace ravelin
