#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "platform/Image.h"
#include "platform/Service.h"
#include "platform/Workspace.h"
#include "support/Pictures.h"
#include "support/TemporaryHome.h"

namespace ravelin::platform {

/// A home with a picture to give to the shortcuts on its desktop.
class WorkspaceTest : public testing::Test {
 protected:
  WorkspaceTest() {
    test::Pictures::write(picture, test::Pictures::png());
    image = service<ImageReader>().imageWithContentsOfFile(picture);
  }

  static std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  bool setIcon(const std::string& path) {
    return service<Workspace>().setIcon(*image, path, home.desktop());
  }

  test::TemporaryHome home;
  std::string picture = home.path() + "/a picture.png";
  std::string shortcut = home.desktop() + "/USB.app";
  std::unique_ptr<Image> image;
};

}  // namespace ravelin::platform
