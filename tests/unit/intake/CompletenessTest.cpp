#include "intake/Completeness.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/Announcements.h"

namespace ravelin {
namespace {

using test::makeDisk;
using test::Texts;

std::optional<Lack> lackIn(const Texts& texts) { return lackOf(*makeDisk(texts)); }

TEST(CompletenessTest, AnEventMustBeThereAndBeKnown) {
  const Texts all{.event = std::nullopt, .mac = "m", .ip = "i", .uuid = "u", .label = "l"};
  EXPECT_EQ(lackIn(all), Lack::event);
  for (const char* event : {"", "mounted", "DISK_MOUNTED", "disk_mounted ", "no_disk\n"}) {
    Texts odd = all;
    odd.event = event;
    EXPECT_EQ(lackIn(odd), Lack::knownEvent) << event;
  }
}

TEST(CompletenessTest, ADiskThatIsThereNeedsEverything) {
  for (const char* event : {"disk_mounted", "disk_status"}) {
    EXPECT_EQ(lackIn({.event = event, .mac = "m", .ip = "i", .uuid = "u", .label = "l"}),
              std::nullopt);
    EXPECT_EQ(lackIn({.event = event, .mac = "m", .ip = "i", .uuid = "u"}), Lack::label);
    EXPECT_EQ(lackIn({.event = event, .mac = "m", .uuid = "u", .label = "l"}), Lack::ip);
    EXPECT_EQ(lackIn({.event = event, .ip = "i", .uuid = "u", .label = "l"}), Lack::mac);
    EXPECT_EQ(lackIn({.event = event, .mac = "m", .ip = "i", .label = "l"}), Lack::uuid);
  }
}

TEST(CompletenessTest, ADiskThatIsGoneNeedsItsDeviceAndItself) {
  EXPECT_EQ(lackIn({.event = "disk_unmounted", .mac = "m", .uuid = "u"}), std::nullopt);
  EXPECT_EQ(lackIn({.event = "disk_unmounted", .uuid = "u"}), Lack::mac);
  EXPECT_EQ(lackIn({.event = "disk_unmounted", .mac = "m"}), Lack::uuid);
  EXPECT_EQ(lackIn({.event = "no_disk", .mac = "m"}), std::nullopt);
  EXPECT_EQ(lackIn({.event = "no_disk", .uuid = "u"}), Lack::mac);
}

TEST(CompletenessTest, AnEmptyTextIsThere) {
  EXPECT_EQ(lackIn({.event = "disk_mounted", .mac = "", .ip = "", .uuid = "", .label = ""}),
            std::nullopt);
}

TEST(CompletenessTest, OfSeveralTheFirstOneIsNamed) {
  EXPECT_EQ(lackIn({.event = "disk_status"}), Lack::uuid);
  EXPECT_EQ(lackIn({.event = "disk_status", .uuid = "u"}), Lack::mac);
  EXPECT_EQ(lackIn({.event = "disk_unmounted"}), Lack::mac);
}

}  // namespace
}  // namespace ravelin
