#include "platform/RunLoop.h"

#include <future>
#include <memory>

namespace ravelin::platform {

void RunLoop::performAndWait(const Action& action) {
  if (isCurrent()) {
    action();
    return;
  }
  // Shared, because the loop's thread is still inside set_value() when this one goes on.
  const auto completion = std::make_shared<std::promise<void>>();
  const auto completed = completion->get_future();
  perform([&action, completion] {
    action();
    completion->set_value();
  });
  completed.wait();
}

}  // namespace ravelin::platform
