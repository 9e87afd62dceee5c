#include "core/AtomicProperty.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ravelin {
namespace {

TEST(AtomicPropertyTest, StartsEmptyAndHoldsWhatWasSetLast) {
  AtomicProperty<std::string> property;
  EXPECT_EQ(property.get(), "");
  property.set("one");
  property.set("two");
  EXPECT_EQ(property.get(), "two");
}

TEST(AtomicPropertyTest, LetsGoOfWhatIsReplaced) {
  AtomicProperty<std::shared_ptr<int>> property;
  auto value = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = value;
  property.set(std::move(value));
  EXPECT_FALSE(watched.expired());
  property.set(nullptr);
  EXPECT_TRUE(watched.expired());
}

TEST(AtomicPropertyTest, WhatIsLetGoOfMayUseTheProperty) {
  AtomicProperty<std::shared_ptr<void>> property;
  int ended = 0;
  property.set(std::shared_ptr<void>(&ended, [&](void* /*value*/) {
    EXPECT_EQ(property.get(), nullptr);
    ++ended;
  }));
  property.set(nullptr);
  EXPECT_EQ(ended, 1);
}

TEST(AtomicPropertyTest, IsReadWholeWhileOthersSetIt) {
  AtomicProperty<std::vector<std::string>> property;
  constexpr std::size_t LENGTH = 50;
  const auto valueOf = [](int number) {
    return std::vector<std::string>(LENGTH, "the text of thread " + std::to_string(number));
  };
  property.set(valueOf(0));
  std::vector<std::jthread> threads;
  for (int number = 1; number <= 3; ++number) {
    threads.emplace_back([&, number] {
      for (int time = 0; time < 1000; ++time) {
        property.set(valueOf(number));
        const auto value = property.get();
        EXPECT_EQ(value, std::vector<std::string>(LENGTH, value.front()));
      }
    });
  }
}

}  // namespace
}  // namespace ravelin
