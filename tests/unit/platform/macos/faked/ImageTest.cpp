#include "platform/Image.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "fakes/FakeWorkspace.h"
#include "platform/ApplicationServices.h"
#include "support/Pictures.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

using fakes::FakeWorkspace;
using test::Pictures;

class MacImageTest : public testing::Test {
 protected:
  std::unique_ptr<Image> read(const std::string& name, std::string_view content) {
    const std::string path = folder.path() + "/" + name;
    Pictures::write(path, content);
    return native<ImageReader>().imageWithContentsOfFile(path);
  }

  FakeWorkspace workspace;
  test::TemporaryDirectory folder;
};

TEST_F(MacImageTest, KnowsPicturesByTheirContent) {
  EXPECT_NE(read("icon.ico", Pictures::ico()), nullptr);
  EXPECT_NE(read("icon.icns", Pictures::icns()), nullptr);
  const auto image = read("\xC3\xA4.ico", Pictures::png());
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->path(), folder.path() + "/\xC3\xA4.ico");
}

TEST_F(MacImageTest, WhatIsNoPictureIsNone) {
  EXPECT_EQ(read("icon.ico", "text"), nullptr);
  EXPECT_EQ(read("empty.ico", ""), nullptr);
  EXPECT_EQ(read("\xFF.ico", Pictures::png()), nullptr);
  EXPECT_EQ(native<ImageReader>().imageWithContentsOfFile(folder.path() + "/missing"), nullptr);
  EXPECT_EQ(native<ImageReader>().imageWithContentsOfFile(folder.path()), nullptr);
  EXPECT_EQ(native<ImageReader>().imageWithContentsOfFile(""), nullptr);
}

TEST_F(MacImageTest, NoPictureOutlivesItsImage) {
  const int before = FakeWorkspace::pictures();
  {
    const auto image = read("icon.png", Pictures::png());
    EXPECT_EQ(FakeWorkspace::pictures(), before + 1);
  }
  read("icon.ico", "text");
  EXPECT_EQ(FakeWorkspace::pictures(), before);
}

TEST(MacApplicationServicesTest, TellsWhetherTheyLoad) {
  FakeWorkspace workspace;
  EXPECT_TRUE(loadApplicationServices());
  workspace.refuseToLoad();
  EXPECT_FALSE(loadApplicationServices());
}

}  // namespace
}  // namespace ravelin::platform
