#pragma once

#include <csignal>

#include <chrono>

namespace ravelin::announce {

/// Waits until a time, or until the process is asked to end. One in a process, in its only thread.
class Waiter {
 public:
  Waiter();

  /// From now on SIGINT and SIGTERM end the waiting, not the process.
  void heedSignals();

  /// Waits until the time has come; false if a signal came first, or before.
  [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point time) const;

 private:
  sigset_t _whileWaiting;  ///< the signals that stay blocked meanwhile
};

}  // namespace ravelin::announce
