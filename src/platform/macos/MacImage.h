#pragma once

#import <AppKit/AppKit.h>

#include <string>
#include <utility>

#include "platform/Image.h"

namespace ravelin::platform {

/// A picture as AppKit has it. Every Image of this system is one.
class MacImage final : public Image {
 public:
  /// Takes over the picture's reference.
  MacImage(std::string path, NSImage* picture) : _path(std::move(path)), _picture(picture) {}
  ~MacImage() override { [_picture release]; }
  MacImage(const MacImage&) = delete;
  MacImage& operator=(const MacImage&) = delete;

  [[nodiscard]] const std::string& path() const override { return _path; }
  [[nodiscard]] NSImage* picture() const { return _picture; }

 private:
  std::string _path;
  NSImage* _picture;
};

}  // namespace ravelin::platform
