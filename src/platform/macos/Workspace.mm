#include "platform/Workspace.h"

#import <AppKit/AppKit.h>

#include "platform/macos/FoundationText.h"
#include "platform/macos/MacImage.h"
#include "platform/macos/MacShortcuts.h"
#include "platform/posix/BeneathResolver.h"
#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {

namespace {

class MacWorkspace final : public Workspace {
 public:
  bool setIcon(const Image& image, const std::string& forFile, const Text& beneath) override {
    // The system's call takes a path, follows it wherever it leads, and changes what is there.
    if (!_isShortcut(forFile, beneath)) {
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

 private:
  [[nodiscard]] bool _isShortcut(const std::string& path, const Text& beneath) const {
    const auto place = BeneathResolver(_access).resolve(path, beneath);
    const int folder = place.folder.number();
    if (place.error != 0) {
      return false;
    }
    FoundItem item = _access.find(folder, place.name);
    return item.error == 0 && _shortcuts.isShortcut(folder, place.name, item);
  }

  const StepwiseAccess _access;
  const MacShortcuts _shortcuts{_access};
};

}  // namespace

template <>
Workspace& native<Workspace>() {
  static auto& instance = *new MacWorkspace;
  return instance;
}

}  // namespace ravelin::platform
