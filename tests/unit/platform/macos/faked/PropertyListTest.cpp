#include "platform/PropertyList.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/Pictures.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

std::string xml(std::string_view value) {
  return std::string(
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
             "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
             "<plist version=\"1.0\">")
      .append(value)
      .append("</plist>\n");
}

/// The value that is in a list at the key "a".
PropertyListValue valueOf(std::string_view value) {
  const auto found = dictionaryWithContents(
      xml(std::string("<dict><key>a</key>").append(value).append("</dict>")));
  EXPECT_TRUE(found) << value;
  return found && found->contains("a") ? found->at("a") : PropertyListValue();
}

TEST(MacPropertyListTest, EachValueHasItsType) {
  EXPECT_EQ(valueOf("<true/>").stringValue(), "1");
  EXPECT_EQ(valueOf("<false/>").stringValue(), "0");
  EXPECT_EQ(valueOf("<integer>1</integer>").stringValue(), "1");
  EXPECT_EQ(valueOf("<integer>-9007199254740993</integer>").stringValue(), "-9007199254740993");
  EXPECT_EQ(valueOf("<real>90.75</real>").stringValue(), "90.75");
  EXPECT_EQ(valueOf("<real>3</real>").stringValue(), "3");
  EXPECT_EQ(valueOf("<real>0.5</real>").intValue(), 0);
  EXPECT_TRUE(valueOf("<real>0.5</real>").boolValue());
  EXPECT_EQ(valueOf("<string>a &lt;b&gt; \xC3\xA4\xF0\x9F\x92\xBE</string>").stringValue(),
            "a <b> \xC3\xA4\xF0\x9F\x92\xBE");
  EXPECT_EQ(valueOf("<string></string>").stringValue(), "");
}

TEST(MacPropertyListTest, WhatIsNoneOfTheTypesIsNothing) {
  EXPECT_EQ(valueOf("<date>2011-03-04T05:06:07Z</date>").stringValue(), std::nullopt);
  EXPECT_EQ(valueOf("<data>AAEC</data>").stringValue(), std::nullopt);
}

TEST(MacPropertyListTest, ContainersAreReadWithWhatIsInThem) {
  const auto outer = valueOf(
      "<array><array><string>239.255.0.1</string><integer>8080</integer></array>"
      "<dict><key>x &amp; y</key><true/></dict></array>");
  ASSERT_NE(outer.array(), nullptr);
  ASSERT_EQ(outer.array()->size(), 2U);
  ASSERT_NE(outer.array()->at(0).array(), nullptr);
  EXPECT_EQ(outer.array()->at(0).array()->at(0).stringValue(), "239.255.0.1");
  EXPECT_EQ(outer.array()->at(0).array()->at(1).intValue(), 8080);
  ASSERT_NE(outer.array()->at(1).dictionary(), nullptr);
  EXPECT_TRUE(outer.array()->at(1).dictionary()->at("x & y").boolValue());
}

TEST(MacPropertyListTest, OnlyADictionaryInOneOfTheTwoFormsIsRead) {
  for (const std::string& content :
       {std::string(), std::string("hello"), std::string("{ a = 1; }"), std::string("a = 1;"),
        std::string("bplist00"), std::string(64, '\0'), xml("<array/>"), xml("<string>a</string>"),
        std::string("<plist><dict>")}) {
    EXPECT_EQ(dictionaryWithContents(content), std::nullopt) << content;
  }
}

TEST(MacPropertyListTest, ReadsFiles) {
  const test::TemporaryDirectory folder;
  const std::string path = folder.path() + "/\xC3\xA4.plist";
  EXPECT_EQ(dictionaryWithContentsOfFile(path), std::nullopt);
  test::Pictures::write(path, xml("<dict><key>a</key><string>b</string></dict>"));
  const auto found = dictionaryWithContentsOfFile(path);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("a").stringValue(), "b");
  EXPECT_EQ(dictionaryWithContentsOfFile(folder.path()), std::nullopt);
  EXPECT_EQ(dictionaryWithContentsOfFile(folder.path() + "/\xFF"), std::nullopt);
  test::Pictures::write(path, "{ a = 1; }");
  EXPECT_EQ(dictionaryWithContentsOfFile(path), std::nullopt);
}

TEST(MacPropertyListTest, AFileThatWouldBeWaitedForIsNotRead) {
  const test::TemporaryDirectory folder;
  const std::string path = folder.path() + "/fifo.plist";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(dictionaryWithContentsOfFile(path), std::nullopt);
}

TEST(MacPropertyListTest, WhatIsTooLargeOrTooDeepIsNotRead) {
  const auto filled = [](std::size_t size) {
    return xml("<dict><key>a</key><string>" + std::string(size, 'x') + "</string></dict>");
  };
  EXPECT_TRUE(dictionaryWithContents(filled(1'000'000)));
  EXPECT_FALSE(dictionaryWithContents(filled(1'048'576)));
  const test::TemporaryDirectory folder;
  const std::string path = folder.path() + "/large.plist";
  test::Pictures::write(path, filled(1'048'576));
  EXPECT_FALSE(dictionaryWithContentsOfFile(path));

  const auto nested = [](int depth) {
    std::string value = "<dict><key>a</key>";
    for (int level = 0; level < depth; ++level) {
      value += "<array>";
    }
    for (int level = 0; level < depth; ++level) {
      value += "</array>";
    }
    return xml(value + "</dict>");
  };
  EXPECT_TRUE(dictionaryWithContents(nested(63)));
  EXPECT_FALSE(dictionaryWithContents(nested(64)));
}

TEST(MacPropertyListTest, WhatIsReferredToManyTimesIsNotCopiedWithoutEnd) {
  // A dictionary with one array, whose eight items are one array with eight items, and so on.
  constexpr char ARRAYS = 6;
  std::string list("bplist00");
  std::string offsets;
  const auto begin = [&] { offsets += static_cast<char>(list.size()); };
  begin();
  list += "\xD1\x01\x02";
  begin();
  list += "Qa";
  for (char number = 0; number < ARRAYS; ++number) {
    begin();
    list += "\xA8" + std::string(8, static_cast<char>(number + 3));
  }
  begin();
  list += "Qb";
  const char table = static_cast<char>(list.size());
  list += offsets;
  using namespace std::string_literals;
  list += "\0\0\0\0\0\0\1\1"s + std::string(7, '\0') + static_cast<char>(ARRAYS + 3) +
          std::string(15, '\0') + table;
  EXPECT_FALSE(dictionaryWithContents(list));
}

}  // namespace
}  // namespace ravelin::platform
