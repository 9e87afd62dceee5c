#pragma once

#include <functional>
#include <memory>

namespace ravelin::platform {

class RunLoop;

enum class SessionNotification { didBecomeActive, didResignActive };

/// Tells when the login session of this process comes to the front or leaves it, until it is
/// destroyed. Where the system knows of no sessions, nothing is ever told. The main thread's run
/// loop only; starting it never waits.
class SessionActivityWatch {
 public:
  /// Has the loop call `notify` at every change; it may destroy the watch. The state at the start
  /// is not told.
  static std::unique_ptr<SessionActivityWatch> start(
      RunLoop& loop, std::function<void(SessionNotification)> notify);

  virtual ~SessionActivityWatch() = default;
  SessionActivityWatch(const SessionActivityWatch&) = delete;
  SessionActivityWatch& operator=(const SessionActivityWatch&) = delete;

 protected:
  SessionActivityWatch() = default;
};

}  // namespace ravelin::platform
