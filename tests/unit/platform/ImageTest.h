#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/Image.h"
#include "platform/Service.h"
#include "support/Pictures.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {

/// Reads pictures from a folder of the test's own.
class ImageTest : public testing::Test {
 protected:
  std::string file(const std::string& name, std::string_view content) {
    std::string path = _folder.path() + "/" + name;
    test::Pictures::write(path, content);
    return path;
  }

  static std::unique_ptr<Image> read(const std::string& path) {
    return service<ImageReader>().imageWithContentsOfFile(path);
  }

  test::TemporaryDirectory _folder;
};

}  // namespace ravelin::platform
