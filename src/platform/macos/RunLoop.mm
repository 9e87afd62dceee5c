#include "platform/RunLoop.h"

#import <Foundation/Foundation.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <utility>

#include "base/Precondition.h"
#include "base/ThreadSafety.h"
#include "platform/macos/Owned.h"

namespace ravelin::platform {

namespace {

/// What can be ready. Termination goes before the others, which take turns.
enum Kind : std::size_t { TERMINATION, HANDOVER, TIMER, DESCRIPTOR, KINDS };

/// A timer or a watched descriptor. It outlives the object that the user holds while its action is
/// under way, for the action may destroy that object.
struct Source {
  Kind kind;
  RunLoop::Action action;
  Owned<CFRunLoopTimerRef> timer = nullptr;
  CFTimeInterval interval = 0;
  Owned<CFSocketRef> socket = nullptr;
  bool isReady = false;                              ///< waits among what is ready
  bool isOver = false;                               ///< the user's object is destroyed
  std::optional<CFAbsoluteTime> due = std::nullopt;  ///< of a suspended timer, its next time

  /// Has the system tell of it again. After the action only, so that an action that takes longer
  /// than the timer's interval does not make the timer due for ever.
  void rearm() const {
    if (socket != nullptr) {
      CFSocketEnableCallBacks(socket.get(), kCFSocketReadCallBack);
      return;
    }
    if (due) {
      return;
    }
    const CFAbsoluteTime next = CFRunLoopTimerGetNextFireDate(timer.get());
    const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
    if (next < now) {
      CFRunLoopTimerSetNextFireDate(timer.get(), firstAfter(now, next));
    }
  }

  /// The first of the timer's times, of which one is given, that is later than the moment.
  [[nodiscard]] CFAbsoluteTime firstAfter(CFAbsoluteTime moment, CFAbsoluteTime one) const {
    return one > moment ? one : one + (std::floor((moment - one) / interval) + 1) * interval;
  }
};
using SourcePtr = std::shared_ptr<Source>;

/// The callbacks of the system only note what is ready, and `runOnce` does one thing of it. So
/// whoever runs the system's loop inside an action, as a script does, runs none of the agent's
/// actions. Other threads touch nothing but the queue of what they hand over, under its mutex, and
/// the two calls that wake the loop, which are made for that.
class MacRunLoop final : public RunLoop {
 public:
  explicit MacRunLoop(CFRunLoopRef loop)
      : _loop(static_cast<CFRunLoopRef>(const_cast<void*>(CFRetain(loop)))) {
    CFRunLoopSourceContext context{};
    context.perform = [](void*) {};
    _handover.reset(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    CFRunLoopAddSource(loop, _handover.get(), kCFRunLoopDefaultMode);
  }
  ~MacRunLoop() override { CFRunLoopSourceInvalidate(_handover.get()); }
  MacRunLoop(const MacRunLoop&) = delete;
  MacRunLoop& operator=(const MacRunLoop&) = delete;

  [[nodiscard]] bool isCurrent() const override { return CFRunLoopGetCurrent() == _loop.get(); }

  [[nodiscard]] std::unique_ptr<Timer> scheduleTimer(Seconds interval, Action action) override {
    precondition(isCurrent(), "RunLoop::scheduleTimer", "the thread is the loop's own");
    auto timer = std::make_unique<MacTimer>(*this, std::move(action));
    // In this order NaN becomes the smallest interval, too.
    timer->start(std::min(std::max(SMALLEST_INTERVAL, interval), DISTANT_FUTURE).count());
    return timer;
  }

  [[nodiscard]] std::unique_ptr<Watch> watchReadable(int descriptor, Urgency urgency,
                                                     Action action) override {
    precondition(isCurrent(), "RunLoop::watchReadable", "the thread is the loop's own");
    auto watch = std::make_unique<MacWatch>(
        *this, urgency == Urgency::termination ? TERMINATION : DESCRIPTOR, std::move(action));
    return watch->start(descriptor) ? std::move(watch) : nullptr;
  }

  void runOnce(Seconds limit) override {
    precondition(isCurrent(), "RunLoop::runOnce", "the thread is the loop's own");
    precondition(!_isRunning, "RunLoop::runOnce", "no action of the loop is under way");
    // Not by the wall clock, which somebody may set meanwhile.
    const auto end = std::chrono::steady_clock::now() + std::min(limit, DISTANT_FUTURE);
    _isRunning = true;
    // The first look takes what is ready, without a wait.
    CFTimeInterval wait = 0;
    do {
      @autoreleasepool {
        _isWaiting = wait > 0;
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, wait, _isWaiting);
        _isWaiting = false;
        if (_doOneThing()) {
          break;
        }
        wait = Seconds(end - std::chrono::steady_clock::now()).count();
      }
    } while (wait > 0);
    _isRunning = false;
  }

  void giveBackMemoryBeforeWaiting() override {
    precondition(isCurrent(), "RunLoop::giveBackMemoryBeforeWaiting",
                 "the thread is the loop's own");
    // This system takes such pages by itself, and does not count them as the process's own.
  }

  void perform(Action action) override {
    // Wakes before it lets go: the action may end the thread, and the loop with it.
    const LockGuard lock(_mutex);
    _actions.push_back(std::move(action));
    CFRunLoopSourceSignal(_handover.get());
    CFRunLoopWakeUp(_loop.get());
  }

 private:
  /// What a callback of the system's gets: it lives in the user's object, which ends the callbacks
  /// when it is destroyed.
  struct Noter {
    MacRunLoop& loop;
    SourcePtr source;

    static void note(void* noter) noexcept {
      const auto& self = *static_cast<Noter*>(noter);
      self.loop._note(self.source);
    }
  };

  class MacTimer final : public Timer {
   public:
    MacTimer(MacRunLoop& loop, Action action)
        : _noter{loop, std::make_shared<Source>(Source{TIMER, std::move(action)})} {}
    ~MacTimer() override {
      CFRunLoopTimerInvalidate(_noter.source->timer.get());
      _noter.source->isOver = true;
    }

    void start(CFTimeInterval interval) {
      CFRunLoopTimerContext context{};
      context.info = &_noter;
      Source& source = *_noter.source;
      source.interval = interval;
      source.timer.reset(CFRunLoopTimerCreate(
          kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + interval, interval, 0, 0,
          [](CFRunLoopTimerRef, void* noter) { Noter::note(noter); }, &context));
      CFRunLoopAddTimer(_noter.loop._loop.get(), source.timer.get(), kCFRunLoopDefaultMode);
    }

    void suspend() override {
      Source& source = *_noter.source;
      if (!source.due) {
        // What has been noted and is not served any more has been passed already.
        source.due = CFRunLoopTimerGetNextFireDate(source.timer.get()) -
                     (source.isReady ? source.interval : 0);
        CFRunLoopTimerSetNextFireDate(source.timer.get(),
                                      CFAbsoluteTimeGetCurrent() + DISTANT_FUTURE.count());
      }
    }

    void resume(std::chrono::steady_clock::time_point since) override {
      Source& source = *_noter.source;
      if (const auto due = std::exchange(source.due, std::nullopt)) {
        const Seconds ago = std::chrono::steady_clock::now() - since;
        CFRunLoopTimerSetNextFireDate(
            source.timer.get(), source.firstAfter(CFAbsoluteTimeGetCurrent() - ago.count(), *due));
      }
    }

   private:
    Noter _noter;
  };

  class MacWatch final : public Watch {
   public:
    MacWatch(MacRunLoop& loop, Kind kind, Action action)
        : _noter{loop, std::make_shared<Source>(Source{kind, std::move(action)})} {}
    ~MacWatch() override {
      if (const auto& socket = _noter.source->socket; socket != nullptr) {
        CFSocketInvalidate(socket.get());
      }
      _noter.source->isOver = true;
    }

    bool start(int descriptor) {
      CFSocketContext context{};
      context.info = &_noter;
      Source& source = *_noter.source;
      source.socket.reset(CFSocketCreateWithNative(
          kCFAllocatorDefault, descriptor, kCFSocketReadCallBack,
          [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void* noter) {
            Noter::note(noter);
          },
          &context));
      if (source.socket == nullptr) {
        return false;
      }
      // A descriptor that is watched already has an object, with the callback of whoever made it.
      // Only a new one would close its descriptor.
      if ((CFSocketGetSocketFlags(source.socket.get()) & kCFSocketCloseOnInvalidate) == 0) {
        source.socket.reset();
        return false;
      }
      // The descriptor is not this object's to close, and is told of again when it has been read.
      CFSocketSetSocketFlags(source.socket.get(), 0);
      const Owned<CFRunLoopSourceRef> served(
          CFSocketCreateRunLoopSource(kCFAllocatorDefault, source.socket.get(), 0));
      if (served == nullptr) {
        return false;
      }
      CFRunLoopAddSource(_noter.loop._loop.get(), served.get(), kCFRunLoopDefaultMode);
      return true;
    }

   private:
    Noter _noter;
  };

  void _note(const SourcePtr& source) {
    if (!std::exchange(source->isReady, true)) {
      _ready[source->kind].push_back(source);
    }
    if (_isWaiting) {
      // A timer alone would not end the wait.
      CFRunLoopStop(_loop.get());
    }
  }

  /// False when nothing is ready.
  bool _doOneThing() {
    if (_serve(TERMINATION)) {
      return true;
    }
    constexpr std::size_t IN_TURN = KINDS - HANDOVER;
    for (std::size_t step = 0; step < IN_TURN; ++step) {
      const auto kind = static_cast<Kind>(HANDOVER + (_turn + step) % IN_TURN);
      if (kind == HANDOVER ? _performOne() : _serve(kind)) {
        _turn = (_turn + step + 1) % IN_TURN;
        return true;
      }
    }
    return false;
  }

  bool _serve(Kind kind) {
    std::deque<SourcePtr>& ready = _ready[kind];
    while (!ready.empty()) {
      const SourcePtr source = std::move(ready.front());
      ready.pop_front();
      source->isReady = false;
      if (source->isOver || source->due) {
        continue;
      }
      source->action();
      if (!source->isOver) {
        // A timer that was due again while its own action ran the loop has missed that.
        if (std::exchange(source->isReady, false)) {
          std::erase(ready, source);
        }
        source->rearm();
      }
      return true;
    }
    return false;
  }

  bool _performOne() {
    Action action;
    {
      const LockGuard lock(_mutex);
      if (_actions.empty()) {
        return false;
      }
      action = std::move(_actions.front());
      _actions.pop_front();
    }
    action();
    return true;
  }

  const Owned<CFRunLoopRef> _loop;
  Owned<CFRunLoopSourceRef> _handover;  ///< only wakes the loop
  std::array<std::deque<SourcePtr>, KINDS> _ready;
  std::size_t _turn = 0;  ///< which of those that take turns is asked first
  bool _isRunning = false;
  bool _isWaiting = false;
  Mutex _mutex;
  std::deque<Action> _actions GUARDED_BY(_mutex);
};

}  // namespace

const RunLoop::Seconds RunLoop::SMALLEST_INTERVAL{0.1};

RunLoop& RunLoop::main() {
  static auto& instance = *new MacRunLoop(CFRunLoopGetMain());
  return instance;
}

RunLoop& RunLoop::current() {
  if (CFRunLoopGetCurrent() == CFRunLoopGetMain()) {
    return main();
  }
  thread_local MacRunLoop loop(CFRunLoopGetCurrent());
  return loop;
}

}  // namespace ravelin::platform
