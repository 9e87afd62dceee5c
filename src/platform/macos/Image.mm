#include "platform/Image.h"

#include "platform/macos/FoundationText.h"
#include "platform/macos/MacImage.h"

namespace ravelin::platform {

namespace {

class MacImageReader final : public ImageReader {
 public:
  std::unique_ptr<Image> imageWithContentsOfFile(const std::string& path) override {
    @autoreleasepool {
      NSString* const file = stringOf(path);
      NSImage* const picture = file == nil ? nil : [[NSImage alloc] initWithContentsOfFile:file];
      return picture == nil ? nullptr : std::make_unique<MacImage>(path, picture);
    }
  }
};

}  // namespace

template <>
ImageReader& native<ImageReader>() {
  static auto& instance = *new MacImageReader;
  return instance;
}

}  // namespace ravelin::platform
