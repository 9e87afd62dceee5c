#include "platform/macos/CoreFoundationText.h"

#include <cstddef>
#include <string>

namespace ravelin::platform {

namespace {

constexpr UInt8 REPLACEMENT = '?';

/// Puts the UTF-8 of the whole string into the buffer, if there is one; returns how long it is.
CFIndex encode(CFStringRef string, UInt8* buffer, CFIndex size) {
  CFIndex used = 0;
  CFStringGetBytes(string, CFRange{0, CFStringGetLength(string)}, kCFStringEncodingUTF8,
                   REPLACEMENT, 0, buffer, size, &used);
  return used;
}

}  // namespace

Owned<CFStringRef> cfStringOf(std::string_view text) {
  return Owned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0));
}

Owned<CFURLRef> cfUrlOf(std::string_view address) {
  const auto text = cfStringOf(address);
  return Owned<CFURLRef>(
      text == nullptr ? nullptr : CFURLCreateWithString(kCFAllocatorDefault, text.get(), nullptr));
}

Text textOf(CFStringRef string) {
  if (string == nullptr) {
    return std::nullopt;
  }
  std::string bytes(static_cast<std::size_t>(encode(string, nullptr, 0)), '\0');
  encode(string, reinterpret_cast<UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size()));
  return bytes;
}

}  // namespace ravelin::platform
