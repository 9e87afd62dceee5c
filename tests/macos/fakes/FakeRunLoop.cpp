// Run loops and sockets of CoreFoundation's, as far as this project uses them.
//
// One turn of a loop is: what is signalled is called, in the order of the sources (only the first
// of it where the caller wants to return for it); then one thing at most of what came in meanwhile
// is taken: that somebody woke the loop, or the timers that are due. A timer is no reason to
// return.
#include "FakeRunLoop.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "CoreFoundationObjects.h"

using ravelin::fakes::Object;
using ravelin::fakes::Reference;

namespace {

/// What a callback is given, retained if its owner wants that.
template <class Context>
class Info {
 public:
  explicit Info(const Context* context) : _context(context == nullptr ? Context{} : *context) {
    if (_context.retain != nullptr) {
      _context.info = const_cast<void*>(_context.retain(_context.info));
    }
  }
  ~Info() {
    if (_context.release != nullptr) {
      _context.release(_context.info);
    }
  }
  Info(const Info&) = delete;
  Info& operator=(const Info&) = delete;

  [[nodiscard]] void* get() const { return _context.info; }
  [[nodiscard]] const Context& context() const { return _context; }

 private:
  Context _context;
};

using Steady = std::chrono::steady_clock;

double sinceStart() {
  static const Steady::time_point start = Steady::now();
  return std::chrono::duration<double>(Steady::now() - start).count();
}

std::atomic<double> gWallClock = 800'000'000;  // when the process started

}  // namespace

struct __CFSocket : Object {
  __CFSocket(int native, CFSocketCallBack called, const CFSocketContext* given)
      : descriptor(native), callout(called), info(given) {}
  ~__CFSocket() override { CFSocketInvalidate(this); }

  const int descriptor;
  const CFSocketCallBack callout;
  const Info<CFSocketContext> info;
  std::atomic<CFOptionFlags> flags =
      kCFSocketAutomaticallyReenableReadCallBack | kCFSocketCloseOnInvalidate;
  std::atomic<bool> isEnabled = true;
  std::atomic<bool> isValid = true;
  CFRunLoopSourceRef source = nullptr;  ///< not retained; it retains this
};

struct __CFRunLoopSource : Object {
  __CFRunLoopSource(CFIndex itsOrder, const CFRunLoopSourceContext* given)
      : order(itsOrder), info(given) {}
  ~__CFRunLoopSource() override {
    if (socket.get() != nullptr) {
      socket->source = nullptr;
    }
  }

  const CFIndex order;
  const Info<CFRunLoopSourceContext> info;
  std::atomic<bool> isSignalled = false;
  std::atomic<bool> isValid = true;
  Reference<__CFSocket> socket;
  std::mutex mutex;
  std::set<CFRunLoopRef> loops;  ///< guarded by mutex; a loop takes itself off when it ends
};

struct __CFRunLoopTimer : Object {
  __CFRunLoopTimer(CFRunLoopTimerCallBack called, const CFRunLoopTimerContext* given)
      : callout(called), info(given) {}

  const CFRunLoopTimerCallBack callout;
  const Info<CFRunLoopTimerContext> info;
  double due = 0;  ///< not on the wall clock
  double interval = 0;
  bool wasSet = false;  ///< while it was being called
  std::atomic<bool> isValid = true;
};

struct __CFRunLoop : Object {
  ~__CFRunLoop() override {
    for (const auto& source : sources) {
      const std::lock_guard lock(source->mutex);
      source->loops.erase(this);
    }
    ::close(wakeDescriptor);
  }

  const int wakeDescriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::atomic<bool> isStopped = false;
  bool timersComeFirst = false;  ///< of two things that came in, the one that did not last time
  std::mutex mutex;
  std::vector<Reference<__CFRunLoopSource>> sources;  ///< guarded by mutex, by their order
  std::vector<Reference<__CFRunLoopTimer>> timers;    ///< guarded by mutex
};

namespace {

std::mutex gSocketsMutex;
std::map<int, __CFSocket*> gSockets;  // guarded by the mutex; those that are valid

void dropInvalid(CFRunLoopRef loop) {
  std::vector<Reference<__CFRunLoopSource>> sources;
  std::vector<Reference<__CFRunLoopTimer>> timers;
  const std::lock_guard lock(loop->mutex);
  const auto drop = [](auto& items, auto& dropped) {
    std::erase_if(items, [&dropped](const auto& item) {
      if (!item->isValid) {
        dropped.push_back(item);
      }
      return !item->isValid;
    });
  };
  drop(loop->sources, sources);
  drop(loop->timers, timers);
}

bool isReadable(int descriptor) {
  pollfd entry{descriptor, POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;
}

/// What the system has found readable is told even if somebody reads it before.
void noteReadable(const std::vector<Reference<__CFRunLoopSource>>& sources) {
  for (const auto& source : sources) {
    if (auto* const socket = source->socket.get(); socket != nullptr && source->isValid &&
                                                   socket->isEnabled &&
                                                   isReadable(socket->descriptor)) {
      socket->isEnabled = false;
      source->isSignalled = true;
    }
  }
}

void call(__CFRunLoopSource& source) {
  if (auto* const socket = source.socket.get(); socket != nullptr) {
    const Reference<__CFSocket> kept = source.socket;
    socket->callout(socket, kCFSocketReadCallBack, nullptr, nullptr, socket->info.get());
    if ((socket->flags & kCFSocketAutomaticallyReenableReadCallBack) != 0) {
      socket->isEnabled = true;
    }
  } else {
    source.info.context().perform(source.info.get());
  }
}

/// Whether one was called.
bool callSources(CFRunLoopRef loop, bool onlyOne) {
  std::vector<Reference<__CFRunLoopSource>> sources;
  {
    const std::lock_guard lock(loop->mutex);
    sources = loop->sources;
  }
  noteReadable(sources);
  std::erase_if(sources, [](const auto& source) { return !source->isSignalled; });
  bool wasCalled = false;
  for (const auto& source : sources) {
    if (wasCalled && onlyOne) {
      break;
    }
    if (source->isValid && source->isSignalled.exchange(false)) {
      call(*source.get());
      wasCalled = true;
    }
  }
  return wasCalled;
}

std::vector<Reference<__CFRunLoopTimer>> timersOf(CFRunLoopRef loop) {
  const std::lock_guard lock(loop->mutex);
  return loop->timers;
}

/// Whether one was due.
bool callTimers(CFRunLoopRef loop) {
  auto timers = timersOf(loop);
  const double now = sinceStart();
  std::erase_if(timers, [now](const auto& timer) { return timer->due > now; });
  std::ranges::stable_sort(timers, {}, [](const auto& timer) { return timer->due; });
  for (const auto& timer : timers) {
    if (!timer->isValid) {
      continue;
    }
    timer->wasSet = false;
    timer->callout(timer.get(), timer->info.get());
    if (!timer->wasSet) {
      const double late = std::max(0.0, sinceStart() - timer->due);
      timer->due += (std::floor(late / timer->interval) + 1) * timer->interval;
    }
  }
  return !timers.empty();
}

bool takeWake(CFRunLoopRef loop) {
  eventfd_t wakes = 0;
  return ::eventfd_read(loop->wakeDescriptor, &wakes) == 0;
}

/// Waits until something comes in, but no longer than that.
void wait(CFRunLoopRef loop, double seconds) {
  std::vector<pollfd> watched{{loop->wakeDescriptor, POLLIN, 0}};
  {
    const std::lock_guard lock(loop->mutex);
    for (const auto& source : loop->sources) {
      if (source->isValid && source->isSignalled) {
        seconds = 0;
      }
      if (const auto* const socket = source->socket.get();
          source->isValid && socket != nullptr && socket->isEnabled) {
        watched.push_back({socket->descriptor, POLLIN, 0});
      }
    }
    for (const auto& timer : loop->timers) {
      seconds = std::min(seconds, timer->due - sinceStart());
    }
  }
  constexpr double LONGEST = 1e6;
  constexpr double MILLISECONDS = 1e3;
  const double waited = std::clamp(seconds, 0.0, LONGEST) * MILLISECONDS;
  ::poll(watched.data(), watched.size(), static_cast<int>(std::ceil(waited)));
}

void takeWhatCameIn(CFRunLoopRef loop) {
  if (std::exchange(loop->timersComeFirst, !loop->timersComeFirst)) {
    callTimers(loop) || takeWake(loop);
  } else {
    takeWake(loop) || callTimers(loop);
  }
}

bool isEmpty(CFRunLoopRef loop) {
  const std::lock_guard lock(loop->mutex);
  return loop->sources.empty() && loop->timers.empty();
}

struct MainSource {
  std::mutex mutex;
  std::deque<std::function<void()>> calls;  // guarded by mutex
  CFRunLoopSourceRef source = nullptr;

  MainSource() {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.perform = [](void* self) { static_cast<MainSource*>(self)->callAll(); };
    source = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
    CFRunLoopAddSource(CFRunLoopGetMain(), source, kCFRunLoopDefaultMode);
  }

  void callAll() {
    std::deque<std::function<void()>> taken;
    {
      const std::lock_guard lock(mutex);
      taken.swap(calls);
    }
    for (const auto& taken_call : taken) {
      taken_call();
    }
  }
};

}  // namespace

namespace ravelin::fakes {

bool spinRunLoop(double seconds) {
  return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, 0) != kCFRunLoopRunStopped;
}

void moveWallClock(double seconds) { gWallClock = gWallClock + seconds; }

void postToMainLoop(std::function<void()> call) {
  static auto& main = *new MainSource;
  {
    const std::lock_guard lock(main.mutex);
    main.calls.push_back(std::move(call));
  }
  signalAndWake(main.source);
}

void signalAndWake(CFRunLoopSourceRef source) {
  CFRunLoopSourceSignal(source);
  const std::lock_guard lock(source->mutex);
  std::ranges::for_each(source->loops, CFRunLoopWakeUp);
}

}  // namespace ravelin::fakes

extern "C" {

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) { return gWallClock + sinceStart(); }

CFRunLoopRef CFRunLoopGetMain(void) {
  static auto* const loop = new __CFRunLoop;
  return loop;
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  if (::gettid() == ::getpid()) {
    return CFRunLoopGetMain();
  }
  static thread_local const Reference<__CFRunLoop> own(new __CFRunLoop);
  return own.get();
}

void CFRunLoopWakeUp(CFRunLoopRef rl) { ::eventfd_write(rl->wakeDescriptor, 1); }

void CFRunLoopStop(CFRunLoopRef rl) {
  rl->isStopped = true;
  CFRunLoopWakeUp(rl);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode /*mode*/, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  const double end = sinceStart() + seconds;
  // To stop a loop is to stop the run that is under way, not the one around it.
  const bool outerIsStopped = loop->isStopped.exchange(false);
  CFRunLoopRunResult result{};
  while (result == CFRunLoopRunResult{}) {
    dropInvalid(loop);
    if (isEmpty(loop)) {
      result = kCFRunLoopRunFinished;
      break;
    }
    const bool wasHandled = callSources(loop, returnAfterSourceHandled != 0);
    wait(loop, wasHandled || loop->isStopped ? 0 : end - sinceStart());
    takeWhatCameIn(loop);
    if (wasHandled && returnAfterSourceHandled != 0) {
      result = kCFRunLoopRunHandledSource;
    } else if (sinceStart() >= end) {
      result = kCFRunLoopRunTimedOut;
    } else if (loop->isStopped) {
      result = kCFRunLoopRunStopped;
    }
  }
  loop->isStopped = outerIsStopped;
  dropInvalid(loop);
  return result;
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef /*allocator*/, CFIndex order,
                                         CFRunLoopSourceContext* context) {
  return new __CFRunLoopSource(order, context);
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) { source->isValid = false; }

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) { source->isSignalled = true; }

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode /*mode*/) {
  {
    const std::lock_guard lock(source->mutex);
    if (!source->loops.insert(rl).second) {
      return;
    }
  }
  const std::lock_guard lock(rl->mutex);
  rl->sources.push_back(Reference<__CFRunLoopSource>::to(source));
  std::ranges::stable_sort(rl->sources, {}, [](const auto& item) { return item->order; });
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef /*allocator*/, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags /*flags*/,
                                       CFIndex /*order*/, CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
  auto* const timer = new __CFRunLoopTimer(callout, context);
  timer->due = fireDate - gWallClock;
  timer->interval = interval;
  return timer;
}

CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer) {
  return timer->due + gWallClock;
}

void CFRunLoopTimerSetNextFireDate(CFRunLoopTimerRef timer, CFAbsoluteTime fireDate) {
  timer->due = fireDate - gWallClock;
  timer->wasSet = true;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) { timer->isValid = false; }

void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode /*mode*/) {
  const std::lock_guard lock(rl->mutex);
  rl->timers.push_back(Reference<__CFRunLoopTimer>::to(timer));
}

CFSocketRef CFSocketCreateWithNative(CFAllocatorRef /*allocator*/, CFSocketNativeHandle sock,
                                     CFOptionFlags /*callBackTypes*/, CFSocketCallBack callout,
                                     const CFSocketContext* context) {
  if (::fcntl(sock, F_GETFD) < 0) {
    return nullptr;
  }
  const std::lock_guard lock(gSocketsMutex);
  __CFSocket*& place = gSockets[sock];
  // The one that there is keeps its own callback and context.
  if (place == nullptr) {
    place = new __CFSocket(sock, callout, context);
  } else {
    CFRetain(place);
  }
  return place;
}

CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef /*allocator*/, CFSocketRef s,
                                               CFIndex order) {
  if (!s->isValid) {
    return nullptr;
  }
  if (s->source != nullptr) {
    CFRetain(s->source);
    return s->source;
  }
  s->source = new __CFRunLoopSource(order, nullptr);
  s->source->socket = Reference<__CFSocket>::to(s);
  return s->source;
}

CFOptionFlags CFSocketGetSocketFlags(CFSocketRef s) { return s->flags; }

void CFSocketSetSocketFlags(CFSocketRef s, CFOptionFlags flags) { s->flags = flags; }

void CFSocketEnableCallBacks(CFSocketRef s, CFOptionFlags /*callBackTypes*/) {
  s->isEnabled = true;
}

void CFSocketInvalidate(CFSocketRef s) {
  if (!s->isValid.exchange(false)) {
    return;
  }
  if (s->source != nullptr) {
    CFRunLoopSourceInvalidate(s->source);
  }
  {
    const std::lock_guard lock(gSocketsMutex);
    gSockets.erase(s->descriptor);
  }
  if ((s->flags & kCFSocketCloseOnInvalidate) != 0) {
    ::close(s->descriptor);
  }
}

}  // extern "C"
