#pragma once

#include <functional>
#include <memory>
#include <string>

namespace ravelin::platform {

class RunLoop;

/// Tells that the IPv4 configuration of some network interface has changed, until it is destroyed.
/// Changes that come together may be told once. The run loop's thread only.
class AddressChangeWatch {
 public:
  /// What is called after a change. `anAddressWentAway` says that an address may have left its
  /// interface, though it may be back by now, there or elsewhere: what was bound to it there is
  /// gone, even where the machine's addresses are the same as before.
  using Changed = std::function<void(bool anAddressWentAway)>;

  /// Calls `changed` on the loop's thread after every change; it may destroy the watch. Null when
  /// the system refuses, and `reason` then says why in its words.
  static std::unique_ptr<AddressChangeWatch> start(RunLoop& loop, Changed changed,
                                                   std::string& reason);

  virtual ~AddressChangeWatch() = default;

  /// Calls `changed` now, if something has changed of which it has not been told yet.
  virtual void tellNow() = 0;

  AddressChangeWatch(const AddressChangeWatch&) = delete;
  AddressChangeWatch& operator=(const AddressChangeWatch&) = delete;

 protected:
  AddressChangeWatch() = default;
};

}  // namespace ravelin::platform
