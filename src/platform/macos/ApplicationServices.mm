#include "platform/ApplicationServices.h"

#import <AppKit/AppKit.h>

namespace ravelin::platform {

bool loadApplicationServices() {
  @autoreleasepool {
    return NSApplicationLoad();
  }
}

}  // namespace ravelin::platform
