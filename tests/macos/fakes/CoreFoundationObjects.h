#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ravelin::fakes {

/// What every fake object of CoreFoundation's begins with. Any thread may retain and release it.
struct Object {
  Object() = default;
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  std::atomic<int> references = 1;
};

/// One reference to an object, given back when this is destroyed.
template <class Type>
class Reference {
 public:
  Reference() = default;
  explicit Reference(Type* object) : _object(object) {}
  Reference(const Reference& other) : _object(other._object) { _retain(); }
  Reference(Reference&& other) noexcept : _object(other._object) { other._object = nullptr; }
  Reference& operator=(Reference other) noexcept {
    std::swap(_object, other._object);
    return *this;
  }
  ~Reference() {
    if (_object != nullptr) {
      CFRelease(_object);
    }
  }
  /// A further reference to what somebody else holds.
  static Reference to(Type* object) {
    Reference reference(object);
    reference._retain();
    return reference;
  }

  [[nodiscard]] Type* get() const { return _object; }
  Type* operator->() const { return _object; }
  [[nodiscard]] Type* leak() { return std::exchange(_object, nullptr); }
  bool operator==(const Reference& other) const { return _object == other._object; }

 private:
  void _retain() const {
    if (_object != nullptr) {
      CFRetain(_object);
    }
  }

  Type* _object = nullptr;
};

/// A string of the fake's with the text, which is UTF-8.
[[nodiscard]] CFStringRef makeString(std::string_view text);

/// What the string holds, in UTF-8; half a surrogate pair becomes "?". Null becomes "".
[[nodiscard]] std::string contentOf(CFStringRef string);

/// An array of strings.
[[nodiscard]] CFArrayRef makeArray(const std::vector<std::string>& texts);

/// What the URL was made of.
[[nodiscard]] std::string contentOf(CFURLRef url);

/// The URL of what is at the path.
[[nodiscard]] CFURLRef makeFileUrl(const std::string& path);

/// The value at the key, null for none.
[[nodiscard]] CFTypeRef valueAt(CFDictionaryRef dictionary, std::string_view key);

}  // namespace ravelin::fakes
