#include "platform/RunLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>

#include "base/Precondition.h"
#include "base/ThreadSafety.h"
#include "platform/linux/IdleMemory.h"
#include "platform/linux/NativeEvent.h"

namespace ravelin::platform {

namespace {

constexpr std::uint64_t NEVER = UINT64_MAX;

// In microseconds. To sd-event 0 would mean a quarter of a second.
constexpr std::uint64_t TIMER_ACCURACY = 1000;

/// The order in which sd-event takes what is ready at the same time; of what has the same priority,
/// it takes first what has been ready longest.
enum Priority : std::int64_t { TERMINATION, HANDOVER, TIMER, SOCKET = NATIVE_EVENT_PRIORITY };

/// How many turns in a row what is before the sockets may take. From then on, each source that
/// takes a turn waits for its next one in line with the sockets, until one of these has had its
/// turn.
constexpr int TURNS_BEFORE_SOCKETS = 16;

struct Release {
  void operator()(sd_event* event) const { sd_event_unref(event); }
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using Event = std::unique_ptr<sd_event, Release>;
using Source = std::unique_ptr<sd_event_source, Release>;

/// For what fails only when the process has run out of descriptors or memory, or when a loop is
/// used after fork(): without a run loop the process cannot work.
void mustSucceed(int result, std::string_view operation) {
  precondition(result >= 0, operation, "the system provides it");
}

std::uint64_t microseconds(RunLoop::Seconds seconds) {
  if (!(seconds > RunLoop::Seconds::zero())) {  // so that NaN is nothing, too
    return 0;
  }
  const auto bounded = std::min(seconds, RunLoop::DISTANT_FUTURE);
  return static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::microseconds>(bounded).count());
}

/// The time on CLOCK_MONOTONIC, which sd-event's timers use.
std::uint64_t monotonic(std::chrono::steady_clock::time_point time) {
  return static_cast<std::uint64_t>(
      std::chrono::ceil<std::chrono::microseconds>(time.time_since_epoch()).count());
}

std::uint64_t now() { return monotonic(std::chrono::steady_clock::now()); }

/// Asks the system only once: every turn wants to know.
pid_t ownThread() {
  static thread_local const pid_t thread = gettid();
  return thread;
}

/// Keeps account of a loop's turns.
class Turns {
 public:
  void begin() { _isTaken = false; }

  /// Whether something has been called since then.
  [[nodiscard]] bool isTaken() const { return _isTaken; }

  /// Notes that the source, which has this priority, is going to call something.
  void take(sd_event_source* source, Priority priority) {
    _isTaken = true;
    if (priority == TERMINATION) {
      return;
    }
    _beforeSockets = priority == SOCKET ? 0 : std::min(_beforeSockets, TURNS_BEFORE_SOCKETS) + 1;
    const bool mustWait = _beforeSockets > TURNS_BEFORE_SOCKETS;
    mustSucceed(sd_event_source_set_priority(source, mustWait ? SOCKET : priority),
                "RunLoop priority");
  }

 private:
  bool _isTaken = false;
  int _beforeSockets = 0;  // turns in a row
};

/// What a source calls. It is shared between the object that the user holds and the call that is
/// under way, because the call may destroy that object.
struct Subscription : std::enable_shared_from_this<Subscription> {
  Subscription(RunLoop::Action calledAction, Priority ownPriority, Turns& turnsOfLoop)
      : action(std::move(calledAction)), priority(ownPriority), turns(turnsOfLoop) {}

  /// From now on the source, which is new and has this as its user data, is this one's.
  void own(sd_event_source* made) {
    source.reset(made);
    mustSucceed(sd_event_source_set_priority(made, priority), "RunLoop priority");
  }

  /// Makes a timer due at the first of its times that is later than this one.
  void becomeDueAfter(std::uint64_t time) {
    if (due <= time) {
      due += ((time - due) / interval + 1) * interval;
    }
    mustSucceed(sd_event_source_set_time(source.get(), due), "RunLoop timer");
  }

  void enable(bool isEnabled) const {
    mustSucceed(sd_event_source_set_enabled(source.get(), isEnabled ? SD_EVENT_ON : SD_EVENT_OFF),
                "RunLoop timer");
  }

  RunLoop::Action action;
  const Priority priority;
  Turns& turns;
  Source source;  // null once the user's object is destroyed
  std::uint64_t interval = 0;
  std::uint64_t due = 0;
  bool isSuspended = false;
};

/// A timer or a watch, as the user holds it.
template <class Kind>
class Handle : public Kind {
 public:
  explicit Handle(std::shared_ptr<Subscription> subscription)
      : _subscription(std::move(subscription)) {}
  ~Handle() override { _subscription->source.reset(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

 protected:
  [[nodiscard]] Subscription& subscription() const { return *_subscription; }

 private:
  std::shared_ptr<Subscription> _subscription;
};

class TimerHandle final : public Handle<RunLoop::Timer> {
 public:
  using Handle::Handle;

  void suspend() override {
    if (!std::exchange(subscription().isSuspended, true)) {
      subscription().enable(false);
    }
  }

  void resume(std::chrono::steady_clock::time_point since) override {
    if (std::exchange(subscription().isSuspended, false)) {
      subscription().becomeDueAfter(monotonic(since));
      subscription().enable(true);
    }
  }
};

std::shared_ptr<Subscription> call(void* userdata) {
  auto subscription = static_cast<Subscription*>(userdata)->weak_from_this().lock();
  subscription->turns.take(subscription->source.get(), subscription->priority);
  subscription->action();
  return subscription;
}

// Exceptions must not travel through the C library that calls these.
int onReadable(sd_event_source* /*source*/, int /*descriptor*/, std::uint32_t /*events*/,
               void* userdata) noexcept {
  call(userdata);
  return 0;
}

int onTime(sd_event_source* /*source*/, std::uint64_t /*time*/, void* userdata) noexcept {
  auto& timer = *static_cast<Subscription*>(userdata);
  // What the action resumes is due the next time.
  timer.due += timer.interval;
  const auto subscription = call(userdata);
  // A suspended one keeps its place until it is resumed.
  if (subscription->source != nullptr && !subscription->isSuspended) {
    // Only now, after the action, so that one that takes longer than its interval does not make the
    // timer due all the time.
    subscription->becomeDueAfter(now());
  }
  return 0;
}

/// sd-event is not made for several threads: other threads touch only the queue of what they hand
/// over, under its mutex, and the eventfd.
class EventLoop final : public RunLoop {
 public:
  explicit EventLoop(pid_t thread)
      : _thread(thread),
        _handoverDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
    mustSucceed(_handoverDescriptor, "RunLoop eventfd");
    sd_event* event = nullptr;
    mustSucceed(sd_event_new(&event), "RunLoop sd_event_new");
    _event.reset(event);
    sd_event_source* source = nullptr;
    mustSucceed(sd_event_add_io(event, &source, _handoverDescriptor, EPOLLIN, _onHandover, this),
                "RunLoop sd_event_add_io");
    _handover.reset(source);
    mustSucceed(sd_event_source_set_priority(source, HANDOVER), "RunLoop priority");
  }

  ~EventLoop() override {
    _handover.reset();
    close(_handoverDescriptor);
  }

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  [[nodiscard]] sd_event* event() const { return _event.get(); }

  [[nodiscard]] bool isCurrent() const override { return ownThread() == _thread; }

  [[nodiscard]] std::unique_ptr<Timer> scheduleTimer(Seconds interval, Action action) override {
    precondition(isCurrent(), "RunLoop::scheduleTimer", "the thread is the loop's own");
    auto subscription = std::make_shared<Subscription>(std::move(action), TIMER, _turns);
    subscription->interval = std::max(microseconds(interval), microseconds(SMALLEST_INTERVAL));
    subscription->due = now() + subscription->interval;
    sd_event_source* source = nullptr;
    mustSucceed(sd_event_add_time(_event.get(), &source, CLOCK_MONOTONIC, subscription->due,
                                  TIMER_ACCURACY, onTime, subscription.get()),
                "RunLoop::scheduleTimer");
    subscription->own(source);
    subscription->enable(true);
    return std::make_unique<TimerHandle>(std::move(subscription));
  }

  [[nodiscard]] std::unique_ptr<Watch> watchReadable(int descriptor, Urgency urgency,
                                                     Action action) override {
    precondition(isCurrent(), "RunLoop::watchReadable", "the thread is the loop's own");
    const Priority priority = urgency == Urgency::termination ? TERMINATION : SOCKET;
    auto subscription = std::make_shared<Subscription>(std::move(action), priority, _turns);
    sd_event_source* source = nullptr;
    if (sd_event_add_io(_event.get(), &source, descriptor, EPOLLIN, onReadable,
                        subscription.get()) < 0) {
      return nullptr;
    }
    subscription->own(source);
    return std::make_unique<Handle<Watch>>(std::move(subscription));
  }

  void runOnce(Seconds limit) override {
    precondition(isCurrent(), "RunLoop::runOnce", "the thread is the loop's own");
    const bool forever = limit >= DISTANT_FUTURE;
    const std::uint64_t end = forever ? NEVER : now() + microseconds(limit);
    std::uint64_t remaining = forever ? NEVER : microseconds(limit);
    _turns.begin();
    for (;;) {
      const int result = _turn(remaining);
      precondition(result != -EBUSY, "RunLoop::runOnce", "no action of the loop is under way");
      mustSucceed(result, "RunLoop::runOnce");
      if (_turns.isTaken()) {
        return;
      }
      // Nothing was done: the time is up, or a signal has interrupted the wait.
      if (!forever) {
        const std::uint64_t time = now();
        if (time >= end) {
          return;
        }
        remaining = end - time;
      }
    }
  }

  void giveBackMemoryBeforeWaiting() override {
    precondition(isCurrent(), "RunLoop::giveBackMemoryBeforeWaiting",
                 "the thread is the loop's own");
    _givesBackMemory = true;
  }

  void perform(Action action) override {
    // Wakes before it lets go: the action may end the thread, and the loop with it.
    const LockGuard lock(_mutex);
    _actions.push_back(std::move(action));
    mustSucceed(eventfd_write(_handoverDescriptor, 1), "RunLoop::perform");
  }

 private:
  // What sd_event_run does, with a place right before the wait.
  int _turn(std::uint64_t limit) {
    int result = sd_event_prepare(_event.get());
    if (result == 0 && _givesBackMemory) {
      // What is ready already would need it.
      result = sd_event_wait(_event.get(), 0);
      if (result == 0) {
        result = sd_event_prepare(_event.get());
        _givesBackMemory = false;
        giveBackIdleMemory();
      }
    }
    if (result == 0) {
      result = sd_event_wait(_event.get(), limit);
    }
    return result > 0 ? sd_event_dispatch(_event.get()) : result;
  }

  // The eventfd counts the actions that wait, and one is called per turn: termination may come in
  // between.
  static int _onHandover(sd_event_source* source, int descriptor, std::uint32_t /*events*/,
                         void* userdata) noexcept {
    auto& self = *static_cast<EventLoop*>(userdata);
    eventfd_t taken = 0;
    if (eventfd_read(descriptor, &taken) != 0) {
      return 0;
    }
    Action action;
    {
      const LockGuard lock(self._mutex);
      // Another process with access to the eventfd can raise its count without an action.
      if (self._actions.empty()) {
        return 0;
      }
      action = std::move(self._actions.front());
      self._actions.pop_front();
    }
    self._turns.take(source, HANDOVER);
    action();
    return 0;
  }

  const pid_t _thread;
  const int _handoverDescriptor;
  Event _event;
  Source _handover;
  Turns _turns;
  bool _givesBackMemory = false;
  Mutex _mutex;
  std::deque<Action> _actions GUARDED_BY(_mutex);
};

}  // namespace

constinit const RunLoop::Seconds RunLoop::SMALLEST_INTERVAL{0.1};

sd_event* nativeEventOf(RunLoop& loop) {
  precondition(loop.isCurrent(), "nativeEventOf", "the thread is the loop's own");
  // Every run loop of this system is one of these.
  return static_cast<EventLoop&>(loop).event();
}

RunLoop& RunLoop::main() {
  static auto& instance = *new EventLoop(getpid());
  return instance;
}

RunLoop& RunLoop::current() {
  static thread_local const bool isMain = ownThread() == getpid();
  if (isMain) {
    return main();
  }
  static thread_local EventLoop loop(ownThread());
  return loop;
}

}  // namespace ravelin::platform
