#include "core/Configuration.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace ravelin {
namespace {

using platform::PropertyListArray;
using platform::PropertyListDictionary;
using platform::PropertyListValue;
using Variant = PropertyListValue::Variant;

PropertyListValue value(Variant content) { return {std::move(content)}; }
PropertyListValue number(std::int64_t content) { return value(content); }
PropertyListValue text(const std::string& content) { return value(content); }

PropertyListValue pair(PropertyListValue group, PropertyListValue port) {
  return value(PropertyListArray{std::move(group), std::move(port)});
}

Configuration with(const std::string& key, PropertyListValue content) {
  return Configuration::of(PropertyListDictionary{{key, std::move(content)}});
}

TEST(ConfigurationTest, WithoutADictionaryEverythingIsAbsent) {
  for (const auto& dictionary :
       {std::optional<PropertyListDictionary>(), std::optional(PropertyListDictionary())}) {
    const auto configuration = Configuration::of(dictionary);
    EXPECT_TRUE(configuration.multicastAddresses.empty());
    EXPECT_FALSE(configuration.joinIGMP);
    EXPECT_EQ(configuration.igmpMembershipRefreshRate, 0);
  }
}

TEST(ConfigurationTest, EntriesAreReadInTheirOrder) {
  const auto configuration =
      with("MulticastAddresses",
           value(PropertyListArray{pair(text("239.1.1.1"), number(5077)), text("no pair"),
                                   value(PropertyListArray{text("one")}),
                                   pair(value(PropertyListArray()), text("70000x"))}));
  ASSERT_EQ(configuration.multicastAddresses.size(), 2U);
  EXPECT_EQ(configuration.multicastAddresses[0].group, "239.1.1.1");
  EXPECT_EQ(configuration.multicastAddresses[0].port, 5077);
  EXPECT_EQ(configuration.multicastAddresses[1].group, std::nullopt);
  EXPECT_EQ(configuration.multicastAddresses[1].port, 70000);
}

TEST(ConfigurationTest, WhatIsNoArrayHasNoEntries) {
  EXPECT_TRUE(with("MulticastAddresses", text("239.1.1.1")).multicastAddresses.empty());
}

TEST(ConfigurationTest, TheOtherKeysAreReadAsTruthAndNumber) {
  EXPECT_TRUE(with("JoinIGMP", text("YES")).joinIGMP);
  EXPECT_FALSE(with("joinigmp", text("YES")).joinIGMP);
  EXPECT_EQ(with("IGMPMembershipRefreshRate", value(1.9)).igmpMembershipRefreshRate, 1);
}

}  // namespace
}  // namespace ravelin
