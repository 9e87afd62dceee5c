#include "platform/SearchPaths.h"

#import <Foundation/Foundation.h>

#include "base/Text.h"
#include "platform/macos/FoundationText.h"

namespace ravelin::platform {

static_assert(static_cast<int>(SearchPathDirectory::desktop) == NSDesktopDirectory);
static_assert(static_cast<int>(SearchPathDirectory::applicationSupport) ==
              NSApplicationSupportDirectory);
static_assert(static_cast<int>(SearchPathDomain::user) == NSUserDomainMask);
static_assert(static_cast<int>(SearchPathDomain::local) == NSLocalDomainMask);

std::vector<std::string> searchPathsForDirectoriesInDomains(SearchPathDirectory directory,
                                                            SearchPathDomain domain) {
  @autoreleasepool {
    std::vector<std::string> paths;
    for (NSString* path in NSSearchPathForDirectoriesInDomains(
             static_cast<NSSearchPathDirectory>(directory),
             static_cast<NSSearchPathDomainMask>(domain), YES)) {
      paths.push_back(textOrNull(textOf(path)));
    }
    return paths;
  }
}

}  // namespace ravelin::platform
