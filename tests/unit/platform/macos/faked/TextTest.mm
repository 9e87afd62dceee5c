#include <gtest/gtest.h>

#include <string>

#include "platform/macos/CoreFoundationText.h"
#include "platform/macos/FoundationText.h"

namespace ravelin::platform {
namespace {

using namespace std::string_literals;

const std::string TEXTS[] = {
    "",           "USB Disk",     "a\0b"s, "\0"s, "\xC3\xA4\xE2\x82\xAC", "\xF0\x9F\x92\xBE x",
    "\x01\x7F\n", "\xEF\xBF\xBF",
};

// Overlong, cut, a surrogate, beyond the last character, a lone byte in the middle.
const std::string NO_TEXTS[] = {
    "\xFF", "\xC0\xAF", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\x80z", "\xC3",
};

constexpr UniChar HALF_A_PAIR[] = {'a', 0xD83D, 'b'};
constexpr UniChar TURNED_PAIR[] = {0xDCBE, 0xD83D};

TEST(CoreFoundationTextTest, KeepsEveryText) {
  for (const std::string& text : TEXTS) {
    EXPECT_EQ(textOf(cfStringOf(text).get()), text);
  }
  EXPECT_EQ(textOf(cfStringOf("\xEF\xBB\xBFx").get()), "\xEF\xBB\xBFx");
}

TEST(CoreFoundationTextTest, WhatIsNotUtf8HasNoString) {
  for (const std::string& bytes : NO_TEXTS) {
    EXPECT_EQ(cfStringOf(bytes), nullptr) << testing::PrintToString(bytes);
  }
}

TEST(CoreFoundationTextTest, NullAndEmptyDiffer) {
  EXPECT_EQ(textOf(CFStringRef{nullptr}), std::nullopt);
  EXPECT_EQ(textOf(cfStringOf("").get()), "");
}

TEST(CoreFoundationTextTest, HalfASurrogatePairIsReplaced) {
  const Owned<CFStringRef> half(CFStringCreateWithCharacters(kCFAllocatorDefault, HALF_A_PAIR, 3));
  EXPECT_EQ(textOf(half.get()), "a?b");
  const Owned<CFStringRef> turned(
      CFStringCreateWithCharacters(kCFAllocatorDefault, TURNED_PAIR, 2));
  EXPECT_EQ(textOf(turned.get()), "??");
}

TEST(FoundationTextTest, KeepsEveryText) {
  @autoreleasepool {
    for (const std::string& text : TEXTS) {
      NSString* const string = stringOf(text);
      ASSERT_NE(string, nil) << testing::PrintToString(text);
      EXPECT_EQ(textOf(string), text);
    }
  }
}

TEST(FoundationTextTest, WhatIsNotUtf8HasNoString) {
  @autoreleasepool {
    for (const std::string& bytes : NO_TEXTS) {
      EXPECT_EQ(stringOf(bytes), nil) << testing::PrintToString(bytes);
    }
  }
}

TEST(FoundationTextTest, NullAndEmptyDiffer) {
  @autoreleasepool {
    NSString* const none = nil;
    EXPECT_EQ(textOf(none), std::nullopt);
    EXPECT_EQ(textOf(@""), "");
  }
}

}  // namespace
}  // namespace ravelin::platform
