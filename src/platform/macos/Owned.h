#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <type_traits>

namespace ravelin::platform {

struct ReleaseReference {
  void operator()(CFTypeRef reference) const { CFRelease(reference); }
};

/// A reference to an object of CoreFoundation's that is released with this: what a function with
/// "Create" or "Copy" in its name returns. Null for none.
template <class Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, ReleaseReference>;

}  // namespace ravelin::platform
