// Loaded into the agent before the system's libraries, this gives it a clock that stands still
// until the test steps it on: the time that it reads, the time for which its timers and its waits
// wait. A thread of this library's own fires the timers that have become due, and tells the test
// whether the agent has anything left to do. Programs that the agent runs do without it.
//
// Real stays the pause between two looks at a killed child, and whatever the kernel times by
// itself.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr std::int64_t SECOND = 1'000'000'000;
constexpr std::int64_t MILLISECOND = 1'000'000;
constexpr std::int64_t NEVER = INT64_MAX;
constexpr std::size_t LIMIT = 32;

/// The agent's threads that wait for events: the main and the handler thread.
constexpr std::size_t LEAST_WAITERS = 2;

/// What the test writes, in nanoseconds. Shared with it.
struct Page {
  std::atomic<std::int64_t> monotonic;
  std::atomic<std::int64_t> wall;
};

/// What the test is told.
struct Report {
  std::int64_t isAtRest;
  std::int64_t waitsUntil;  // the earliest time on the monotonic clock, or 0
};

struct Timer {
  int descriptor = -1;  // readable once the timer is due, as that of a real one is
  bool isWall = false;
  std::int64_t due = NEVER;
};

/// A thread that waits for events or for a limited time.
struct Waiter {
  Timer* limit = nullptr;
  int events = -1;  // the epoll instance for which it waits
  bool waits = false;
};

pthread_mutex_t gMutex = PTHREAD_MUTEX_INITIALIZER;
std::array<Timer, LIMIT> gTimers;
std::array<Waiter, LIMIT> gWaiters;
std::size_t gWaitersCount = 0;
bool gMainThreadHasWaited = false;
Page* gPage = nullptr;
thread_local Waiter* gOwn = nullptr;

class Lock {
 public:
  Lock() { pthread_mutex_lock(&gMutex); }
  ~Lock() { pthread_mutex_unlock(&gMutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

/// The system's function of this name.
template <class Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::int64_t now(bool isWall) { return isWall ? gPage->wall.load() : gPage->monotonic.load(); }

timespec asTime(std::int64_t time) { return {.tv_sec = time / SECOND, .tv_nsec = time % SECOND}; }

[[noreturn]] void giveUp(const char* what) {
  static_cast<void>(!write(STDERR_FILENO, what, std::strlen(what)));
  abort();
}

bool isReadable(int descriptor) {
  static const auto wait = real<int(pollfd*, nfds_t, int)>("poll");
  pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
  return wait(&watched, 1, 0) > 0;
}

// With the mutex.

Timer* addTimer(bool isWall, int flags) {
  const auto free = std::ranges::find(gTimers, -1, &Timer::descriptor);
  if (free == gTimers.end()) {
    giveUp("stepped clock: too many timers\n");
  }
  *free = {.descriptor = eventfd(0, flags), .isWall = isWall, .due = NEVER};
  return &*free;
}

void fireWhatIsDue() {
  for (Timer& timer : gTimers) {
    if (timer.descriptor >= 0 && timer.due <= now(timer.isWall)) {
      timer.due = NEVER;
      eventfd_write(timer.descriptor, 1);
    }
  }
}

void set(Timer& timer, std::int64_t due) {
  eventfd_t missed = 0;
  if (isReadable(timer.descriptor)) {
    eventfd_read(timer.descriptor, &missed);
  }
  timer.due = due;
  fireWhatIsDue();
}

Waiter& own() {
  if (gOwn == nullptr) {
    if (gWaitersCount == gWaiters.size()) {
      giveUp("stepped clock: too many threads\n");
    }
    gOwn = &gWaiters.at(gWaitersCount++);
    gOwn->limit = addTimer(false, EFD_CLOEXEC | EFD_NONBLOCK);
    gMainThreadHasWaited |= gettid() == getpid();
  }
  return *gOwn;
}

Report report() {
  // The other thread waits before the main one has opened the sockets.
  const bool isStarted = gMainThreadHasWaited && gWaitersCount >= LEAST_WAITERS;
  Report found{.isAtRest = isStarted ? 1 : 0, .waitsUntil = 0};
  for (std::size_t index = 0; index < gWaitersCount; ++index) {
    const Waiter& waiter = gWaiters.at(index);
    const bool rests = waiter.waits && waiter.events >= 0 && !isReadable(waiter.events) &&
                       !isReadable(waiter.limit->descriptor);
    found.isAtRest &= rests ? 1 : 0;
    const bool isLimited = waiter.waits && waiter.events < 0;
    if (isLimited && (found.waitsUntil == 0 || waiter.limit->due < found.waitsUntil)) {
      found.waitsUntil = waiter.limit->due;
    }
  }
  return found;
}

/// Waits until something of this is ready, or until the time is up, which it returns 0 for.
int waitFor(pollfd* watched, nfds_t count, int events, int milliseconds) {
  static const auto wait = real<int(pollfd*, nfds_t, int)>("poll");
  constexpr nfds_t MOST = 15;
  if (count > MOST) {
    giveUp("stepped clock: too much to wait for\n");
  }
  std::array<pollfd, MOST + 1> all{};
  std::copy_n(watched, count, all.begin());
  {
    const Lock lock;
    Waiter& waiter = own();
    const std::int64_t due =
        milliseconds < 0 ? NEVER : now(false) + std::int64_t{milliseconds} * MILLISECOND;
    all.at(count) = {.fd = waiter.limit->descriptor, .events = POLLIN, .revents = 0};
    set(*waiter.limit, due);
    waiter.events = events;
    waiter.waits = milliseconds > 0 || events >= 0;
  }
  int ready = wait(all.data(), count + 1, -1);
  const int reason = errno;
  {
    const Lock lock;
    gOwn->waits = false;
    set(*gOwn->limit, NEVER);
  }
  std::copy_n(all.begin(), count, watched);
  if (ready > 0 && all.at(count).revents != 0) {
    --ready;
  }
  errno = reason;
  return ready;
}

/// Has every thread that waits for events look at the time.
void wakeWaiters() {
  for (std::size_t index = 0; index < gWaitersCount; ++index) {
    const Waiter& waiter = gWaiters.at(index);
    if (waiter.waits && waiter.events >= 0) {
      eventfd_write(waiter.limit->descriptor, 1);
    }
  }
}

/// The thread that does what the test asks for: each byte fires what is due and is replied to; a
/// "w" wakes, too.
void* serve(void* connection) {
  const int descriptor = *static_cast<const int*>(connection);
  char request = 0;
  while (recv(descriptor, &request, 1, 0) == 1) {
    Report found{};
    {
      const Lock lock;
      fireWhatIsDue();
      if (request == 'w') {
        wakeWaiters();
      }
      found = report();
    }
    if (send(descriptor, &found, sizeof found, MSG_NOSIGNAL) != sizeof found) {
      break;
    }
  }
  return nullptr;
}

__attribute__((constructor)) void start() {
  const char* const path = std::getenv("STEPPED_CLOCK");
  if (path == nullptr) {
    giveUp("stepped clock: no STEPPED_CLOCK\n");
  }
  const int file = open(path, O_RDWR | O_CLOEXEC);
  void* const page = mmap(nullptr, sizeof(Page), PROT_READ, MAP_SHARED, file, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncat(std::strncat(static_cast<char*>(address.sun_path), path, 90), ".socket", 8);
  static int descriptor = -1;
  descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (page == MAP_FAILED ||
      connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    giveUp("stepped clock: no test to step it\n");
  }
  close(file);
  gPage = static_cast<Page*>(page);
  unsetenv("LD_PRELOAD");
  unsetenv("STEPPED_CLOCK");
  // Signals are the agent's own threads' business.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  pthread_create(&thread, nullptr, serve, &descriptor);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

// What the agent and its libraries call, in the place of the C library's.
extern "C" {

int steppedClockGettime(clockid_t clock, timespec* time) __asm__("clock_gettime");
int steppedGettimeofday(timeval* time, void* zone) __asm__("gettimeofday");
time_t steppedTime(time_t* result) __asm__("time");
int steppedTimerfdCreate(int clock, int flags) __asm__("timerfd_create");
int steppedTimerfdSettime(int descriptor, int flags, const itimerspec* value,
                          itimerspec* before) __asm__("timerfd_settime");
int steppedPoll(pollfd* watched, nfds_t count, int milliseconds) __asm__("poll");
int steppedEpollWait(int events, epoll_event* found, int most,
                     int milliseconds) __asm__("epoll_wait");
int steppedEpollPwait2(int events, epoll_event* found, int most, const timespec* limit,
                       const sigset_t* mask) __asm__("epoll_pwait2");

int steppedClockGettime(clockid_t clock, timespec* time) {
  const bool isWall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  const bool isMonotonic = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE ||
                           clock == CLOCK_MONOTONIC_RAW || clock == CLOCK_BOOTTIME;
  if (gPage == nullptr || !(isWall || isMonotonic)) {
    return real<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  *time = asTime(now(isWall));
  return 0;
}

int steppedGettimeofday(timeval* time, void* /*zone*/) {
  timespec exact{};
  steppedClockGettime(CLOCK_REALTIME, &exact);
  *time = {.tv_sec = exact.tv_sec, .tv_usec = exact.tv_nsec / 1000};
  return 0;
}

time_t steppedTime(time_t* result) {
  timespec exact{};
  steppedClockGettime(CLOCK_REALTIME, &exact);
  if (result != nullptr) {
    *result = exact.tv_sec;
  }
  return exact.tv_sec;
}

int steppedTimerfdCreate(int clock, int flags) {
  static_assert(int{TFD_NONBLOCK} == int{EFD_NONBLOCK} && int{TFD_CLOEXEC} == int{EFD_CLOEXEC});
  const Lock lock;
  return addTimer(clock == CLOCK_REALTIME, flags)->descriptor;
}

int steppedTimerfdSettime(int descriptor, int flags, const itimerspec* value, itimerspec* before) {
  const Lock lock;
  const auto timer = std::ranges::find(gTimers, descriptor, &Timer::descriptor);
  if (timer == gTimers.end() || before != nullptr || value->it_interval.tv_sec != 0 ||
      value->it_interval.tv_nsec != 0) {
    giveUp("stepped clock: no such use of a timer is known\n");
  }
  const std::int64_t time = value->it_value.tv_sec * SECOND + value->it_value.tv_nsec;
  const bool isAbsolute = (flags & TFD_TIMER_ABSTIME) != 0;
  set(*timer, time == 0 ? NEVER : time + (isAbsolute ? 0 : now(timer->isWall)));
  return 0;
}

int steppedPoll(pollfd* watched, nfds_t count, int milliseconds) {
  if (milliseconds <= 0) {
    return real<int(pollfd*, nfds_t, int)>("poll")(watched, count, milliseconds);
  }
  return waitFor(watched, count, -1, milliseconds);
}

int steppedEpollWait(int events, epoll_event* found, int most, int milliseconds) {
  static const auto take = real<int(int, epoll_event*, int, int)>("epoll_wait");
  if (milliseconds != 0) {
    pollfd watched{.fd = events, .events = POLLIN, .revents = 0};
    if (waitFor(&watched, 1, events, milliseconds) < 0) {
      return -1;
    }
  }
  return take(events, found, most, 0);
}

int steppedEpollPwait2(int events, epoll_event* found, int most, const timespec* limit,
                       const sigset_t* mask) {
  if (mask != nullptr) {
    giveUp("stepped clock: no such use of epoll is known\n");
  }
  if (limit == nullptr) {
    return steppedEpollWait(events, found, most, -1);
  }
  // Rounded up, so that nobody comes back too early.
  const std::int64_t time = limit->tv_sec * SECOND + limit->tv_nsec;
  const std::int64_t milliseconds = (time + MILLISECOND - 1) / MILLISECOND;
  return steppedEpollWait(events, found, most,
                          static_cast<int>(std::min<std::int64_t>(milliseconds, INT32_MAX)));
}

}  // extern "C"
