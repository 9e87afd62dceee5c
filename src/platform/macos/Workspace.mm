#include "platform/Workspace.h"

#import <AppKit/AppKit.h>

#include "platform/FileManager.h"
#include "platform/macos/FoundationText.h"
#include "platform/macos/MacImage.h"

namespace ravelin::platform {

namespace {

class MacWorkspace final : public Workspace {
 public:
  bool setIcon(const Image& image, const std::string& forFile, const Text& beneath) override {
    // The system's call takes a path and follows it wherever it leads.
    if (!service<FileManager>().itemExistsAtPath(forFile, beneath)) {
      return false;
    }
    @autoreleasepool {
      NSString* const file = stringOf(forFile);
      @try {
        return file != nil &&
               [[NSWorkspace sharedWorkspace] setIcon:static_cast<const MacImage&>(image).picture()
                                              forFile:file
                                              options:0];
      } @catch (NSException* exception) {
        throw WorkspaceException(textOrNull(textOf([exception reason])));
      }
    }
  }
};

}  // namespace

template <>
Workspace& native<Workspace>() {
  static auto& instance = *new MacWorkspace;
  return instance;
}

}  // namespace ravelin::platform
