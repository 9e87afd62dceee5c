#pragma once

#include <functional>
#include <memory>

#include "platform/RunLoop.h"

namespace ravelin::check {

/// For the lifetime of this object SIGINT and SIGTERM do not end the process but have the run loop
/// call the action. One in a process, in its main thread.
class EndSignals {
 public:
  EndSignals(platform::RunLoop& loop, std::function<void()> action);
  ~EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

 private:
  std::unique_ptr<platform::RunLoop::Watch> _watch;
};

}  // namespace ravelin::check
