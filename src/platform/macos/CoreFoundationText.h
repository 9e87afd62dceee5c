#pragma once

#include <string_view>

#include "base/Text.h"
#include "platform/macos/Owned.h"

namespace ravelin::platform {

/// The text as an object of CoreFoundation's; null when it is not UTF-8. Any thread.
[[nodiscard]] Owned<CFStringRef> cfStringOf(std::string_view text);

/// The address as an object of CoreFoundation's; null when it is none, or not UTF-8. Any thread.
[[nodiscard]] Owned<CFURLRef> cfUrlOf(std::string_view address);

/// The text in UTF-8, what has none replaced by "?"; null for null. Any thread.
[[nodiscard]] Text textOf(CFStringRef string);

}  // namespace ravelin::platform
