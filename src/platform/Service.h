#pragma once

#include <atomic>

namespace ravelin::platform {

/// The one native implementation of an interface. Each interface's header declares its own, which
/// each system's side defines. It lives until the process ends, exit handlers included.
template <class Interface>
Interface& native();

template <class Interface>
inline std::atomic<Interface*> gSubstitute = nullptr;

/// The implementation in force: what `own` returns, unless a test has put a substitute in its
/// place. Any thread.
template <class Interface, class Own>
[[nodiscard]] Interface& serviceOr(const Own& own) {
  Interface* substitute = gSubstitute<Interface>.load(std::memory_order_acquire);
  return substitute != nullptr ? *substitute : own();
}

/// The same for the native implementation. Any thread.
template <class Interface>
[[nodiscard]] Interface& service() {
  return serviceOr<Interface>(native<Interface>);
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
