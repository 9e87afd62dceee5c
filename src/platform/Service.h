#pragma once

#include <atomic>

namespace ravelin::platform {

/// The one native implementation of an interface; each system's side defines it for the interfaces
/// that it serves. It lives until the process ends, exit handlers included.
template <class Interface>
Interface& native();

template <class Interface>
inline std::atomic<Interface*> gSubstitute = nullptr;

/// The implementation in force: the native one, unless a test has put a substitute in its place.
/// Any thread.
template <class Interface>
[[nodiscard]] Interface& service() {
  Interface* substitute = gSubstitute<Interface>.load(std::memory_order_acquire);
  return substitute != nullptr ? *substitute : native<Interface>();
}

/// Puts an implementation in place of the one in force for the lifetime of this object. For tests.
/// The implementation must outlive this object; no other thread may still be using it afterwards.
template <class Interface>
class Substitute {
 public:
  explicit Substitute(Interface& implementation)
      : _replaced(gSubstitute<Interface>.exchange(&implementation)) {}
  ~Substitute() { gSubstitute<Interface>.store(_replaced, std::memory_order_release); }
  Substitute(const Substitute&) = delete;
  Substitute& operator=(const Substitute&) = delete;

 private:
  Interface* _replaced;
};

}  // namespace ravelin::platform
