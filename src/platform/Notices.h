#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/RunLoop.h"

namespace ravelin::platform {

/// What a watch tells, delivered by a run loop: each notice calls the receiver once, at one of the
/// loop's next turns, in the order in which they were told. Once this is destroyed, no notice is
/// delivered any more. The receiver may destroy it. The loop's thread only.
template <class... What>
class Notices {
 public:
  using Receiver = std::function<void(What...)>;

  Notices(RunLoop& loop, Receiver receiver)
      : _loop(loop), _receiver(std::make_shared<Receiver>(std::move(receiver))) {}

  void tell(What... what) {
    _loop.perform([addressee = std::weak_ptr(_receiver), what...] {
      if (const auto receiver = addressee.lock()) {
        (*receiver)(what...);
      }
    });
  }

 private:
  RunLoop& _loop;
  std::shared_ptr<Receiver> _receiver;
};

}  // namespace ravelin::platform
