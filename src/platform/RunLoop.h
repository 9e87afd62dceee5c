#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace ravelin::platform {

/// The run loop of one thread: repeating timers, descriptors that become readable, and work that is
/// handed over. Everything it calls, it calls on its own thread and from runOnce(), one thing at a
/// time; nothing is called when something else, such as a script, waits on that thread.
///
/// Where several things are ready, termination comes first. There is no other order, but nothing
/// starves: a descriptor that is always readable, timers that are always due and an endless stream
/// of work handed over keep neither each other nor anything else waiting for ever.
class RunLoop {
 public:
  using Action = std::function<void()>;
  using Seconds = std::chrono::duration<double>;

  /// Something for the loop to call, until this is destroyed: after that it is called no more, even
  /// if it was due. Create and destroy it on the loop's thread; its own action may destroy it.
  class Registration {
   public:
    Registration() = default;
    virtual ~Registration() = default;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
  };

  /// A timer, which repeats. The loop's thread only.
  class Timer : public Registration {
   public:
    /// From now on it is not called, and wakes nobody, until it is resumed.
    virtual void suspend() = 0;

    /// Ends the suspension, in step with the timer's start, and as if at that moment, which may lie
    /// in the past: if it would have been called since then, it is called once, and at once. Does
    /// nothing while it is not suspended.
    virtual void resume(std::chrono::steady_clock::time_point since) = 0;
  };

  /// A descriptor being watched. The descriptor stays open, and must, until this is destroyed.
  using Watch = Registration;

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

  /// The smallest interval of a timer, which each system has for itself. No more than 0.1 s.
  static const Seconds SMALLEST_INTERVAL;

  /// Calls the action once per interval, the first time one interval from now. An interval below
  /// the smallest, 0, negative ones and NaN included, becomes that smallest. A loop that was kept
  /// busy skips what it missed and stays in step. The loop's thread only.
  [[nodiscard]] virtual std::unique_ptr<Timer> scheduleTimer(Seconds interval, Action action) = 0;

  /// Calls the action whenever the descriptor has something to read, or an error to report, until
  /// it is read. Null when the system refuses to watch it. The loop's thread only.
  [[nodiscard]] virtual std::unique_ptr<Watch> watchReadable(int descriptor, Urgency urgency,
                                                             Action action) = 0;

  /// Waits until there is something to do, but no longer than the limit, and does one thing.
  /// The loop's thread only, and not from one of the loop's own actions.
  virtual void runOnce(Seconds limit) = 0;

  /// Never expires.
  static constexpr Seconds DISTANT_FUTURE{1e9};

  /// Has the loop give back, right before it waits the next time, what is in memory on behalf of
  /// this process only because it ran: the pages of the program and its libraries, of which the
  /// files hold the same. Each is there again when it is needed. For a process that is going to
  /// sleep without knowing how long; it takes a fifth of a millisecond. What somebody has changed,
  /// such as a debugger that sets breakpoints, stays. Nothing happens where the system takes such
  /// pages by itself. The loop's thread only.
  virtual void giveBackMemoryBeforeWaiting() = 0;

  /// Has the loop's thread call the action at one of its next turns, and returns at once. Actions
  /// of one caller are called in order. Any thread, and always later, even on the loop's own
  /// thread. The action may have the loop's thread end.
  virtual void perform(Action action) = 0;

  /// Has the loop's thread call the action, and returns when it has finished; on the loop's own
  /// thread it is called directly. Any thread. The loop must be running, or the caller waits for it
  /// to run.
  void performAndWait(const Action& action);

 protected:
  RunLoop() = default;
};

}  // namespace ravelin::platform
