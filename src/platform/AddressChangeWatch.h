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
  using Changed = std::function<void()>;

  /// Has the loop call `changed` after every change from now on, those included that come before
  /// the loop runs; it may destroy the watch. Null when the system refuses, and `reason` then says
  /// why in its words.
  static std::unique_ptr<AddressChangeWatch> start(RunLoop& loop, Changed changed,
                                                   std::string& reason);

  virtual ~AddressChangeWatch() = default;

  /// Whether sockets may have lost memberships of multicast groups since this was last asked, or
  /// since the start, even if the machine's addresses are as they were: on some systems an address
  /// that leaves its interface takes them along, though it may be back at once. What has not been
  /// told yet counts. Always false where the system does not let it be known.
  [[nodiscard]] virtual bool membershipsMayBeLost() = 0;

  AddressChangeWatch(const AddressChangeWatch&) = delete;
  AddressChangeWatch& operator=(const AddressChangeWatch&) = delete;

 protected:
  AddressChangeWatch() = default;
};

}  // namespace ravelin::platform
