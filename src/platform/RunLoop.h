#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace ravelin::platform {

/// The run loop of one thread: repeating timers, descriptors that become readable, and work that
/// other threads hand over. Everything it calls, it calls on its own thread, one thing at a time.
///
/// Where several things are ready, termination comes first, then work handed over, then timers,
/// then sockets, and one thing is done before the next look: a socket that is always readable
/// keeps nothing else waiting.
class RunLoop {
 public:
  using Action = std::function<void()>;
  using Seconds = std::chrono::duration<double>;

  /// A timer that repeats until it is destroyed. Create and destroy it on the loop's thread; its
  /// own action may destroy it.
  class Timer {
   public:
    Timer() = default;
    virtual ~Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
  };

  /// A descriptor being watched until this is destroyed. Create and destroy it on the loop's
  /// thread; its own action may destroy it. It never closes the descriptor.
  class Watch {
   public:
    Watch() = default;
    virtual ~Watch() = default;
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
  };

  enum class Urgency { termination, socket };

  /// The loop of the process's main thread; it lives until the process ends, exit handlers
  /// included. Any thread.
  static RunLoop& main();

  /// The loop of the calling thread; it lives as long as the thread.
  static RunLoop& current();

  virtual ~RunLoop() = default;
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// Whether the calling thread is the loop's own. Any thread.
  [[nodiscard]] virtual bool isCurrent() const = 0;

  /// Calls the action once per interval, the first time one interval from now. An interval below
  /// the system's smallest (0.1 s on Linux), 0 and negative ones included, becomes that smallest.
  /// A loop that was kept busy skips what it missed and stays in step. The loop's thread only.
  [[nodiscard]] virtual std::unique_ptr<Timer> scheduleTimer(Seconds interval, Action action) = 0;

  /// Calls the action whenever the descriptor has something to read, or an error to report, until
  /// it is read. Null when the system refuses to watch it. The loop's thread only.
  [[nodiscard]] virtual std::unique_ptr<Watch> watchReadable(int descriptor, Urgency urgency,
                                                             Action action) = 0;

  /// Waits until there is something to do, but no longer than the limit, and does one thing.
  /// The loop's thread only.
  virtual void runOnce(Seconds limit) = 0;

  /// The limit that never comes.
  static constexpr Seconds DISTANT_FUTURE{1e9};

  /// Has the loop's thread call the action at its next turn, and returns at once. Actions of one
  /// caller are called in order. Any thread, and always later, even on the loop's own thread.
  virtual void perform(Action action) = 0;

  /// Has the loop's thread call the action, and returns when it has finished; on the loop's own
  /// thread it is called directly. Any thread. The loop must be running, or the caller waits for it
  /// to run.
  virtual void performAndWait(const Action& action) = 0;

 protected:
  RunLoop() = default;
};

}  // namespace ravelin::platform
