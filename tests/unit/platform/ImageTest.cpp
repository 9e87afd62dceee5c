#include "ImageTest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/Pictures.h"

namespace ravelin::platform {
namespace {

using test::Pictures;

TEST_F(ImageTest, PicturesAreReadByTheirContentWhateverTheirName) {
  int number = 0;
  for (const std::string& content : {Pictures::png(), Pictures::ico(), Pictures::icns()}) {
    for (const char* name : {"icon.ico", "icon.icns", "picture"}) {
      const std::string path = file(std::to_string(++number) + name, content);
      const auto image = read(path);
      ASSERT_NE(image, nullptr) << path;
      EXPECT_EQ(image->path(), path);
    }
  }
}

TEST_F(ImageTest, WhatIsNoReadablePictureIsNone) {
  const std::string png = Pictures::png();
  EXPECT_EQ(read(_folder.path() + "/missing.ico"), nullptr);
  EXPECT_EQ(read(_folder.path()), nullptr);
  EXPECT_EQ(read(file("empty.ico", "")), nullptr);
  EXPECT_EQ(read(file("text.ico", "no picture at all")), nullptr);
  EXPECT_EQ(read(file("cut.ico", png.substr(0, 20))), nullptr);
  EXPECT_EQ(read(file("nul.ico", png) + std::string(1, '\0')), nullptr);
  const std::string pipe = _folder.path() + "/pipe.ico";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(read(pipe), nullptr);
}

TEST_F(ImageTest, APictureThatTakesThePlaceOfAnotherFileIsSeen) {
  const std::string path = file("icon.ico", "not yet");
  EXPECT_EQ(read(path), nullptr);
  file("icon.ico", Pictures::ico());
  EXPECT_NE(read(path), nullptr);
  std::filesystem::remove(path);
  EXPECT_EQ(read(path), nullptr);
}

}  // namespace
}  // namespace ravelin::platform
