#include "platform/SystemVersion.h"

#include <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>

#include <algorithm>

#include "platform/macos/SystemFunction.h"

namespace ravelin::platform {

namespace {

constexpr NSInteger LARGEST_DIGIT = 9;

/// The digits that the number has, each in four bits.
std::int32_t digitsOf(NSInteger number) {
  constexpr NSInteger BASE = 10;
  return static_cast<std::int32_t>((number / BASE % BASE << 4) | number % BASE);
}

std::int32_t versionByProcess() {
  @autoreleasepool {
    const NSOperatingSystemVersion version = [[NSProcessInfo processInfo] operatingSystemVersion];
    return digitsOf(version.majorVersion) << 8 |
           static_cast<std::int32_t>(std::min(version.minorVersion, LARGEST_DIGIT) << 4 |
                                     std::min(version.patchVersion, LARGEST_DIGIT));
  }
}

std::int32_t versionByGestalt() {
  const auto gestalt = systemFunction<decltype(Gestalt)>("Gestalt");
  SInt32 version = 0;
  if (gestalt != nullptr) {
    // The return code says nothing that the version does not.
    gestalt(::gestaltSystemVersion, &version);
  }
  return version;
}

class MacSystemVersion final : public SystemVersion {
 public:
  /// The later one of two answers: to a program that is not built for it, a system may say that it
  /// is an older one, and it may know nothing of Gestalt any more.
  std::int32_t gestaltSystemVersion() override {
    return std::max(versionByGestalt(), versionByProcess());
  }
};

}  // namespace

template <>
SystemVersion& native<SystemVersion>() {
  static auto& instance = *new MacSystemVersion;
  return instance;
}

}  // namespace ravelin::platform
