#pragma once

#include <mutex>

/// These tell clang which mutex guards a member, and what a function expects of a mutex, so that it
/// rejects an access without the lock (-Wthread-safety). Other compilers see nothing of them.
#ifdef __clang__
#define THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define THREAD_ATTRIBUTE(attribute)
#endif

/// The member is read and written only while the mutex is held.
#define GUARDED_BY(mutex) THREAD_ATTRIBUTE(guarded_by(mutex))
/// The caller holds the mutex.
#define REQUIRES(mutex) THREAD_ATTRIBUTE(requires_capability(mutex))
/// The caller does not hold the mutex: the function locks it, or takes too long to run under it.
#define EXCLUDES(mutex) THREAD_ATTRIBUTE(locks_excluded(mutex))

namespace ravelin {

/// A std::mutex that clang's analysis knows. Any thread.
class THREAD_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  void lock() THREAD_ATTRIBUTE(acquire_capability()) { _mutex.lock(); }
  void unlock() THREAD_ATTRIBUTE(release_capability()) { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

/// Holds the mutex as long as it lives.
class THREAD_ATTRIBUTE(scoped_lockable) LockGuard {
 public:
  explicit LockGuard(Mutex& mutex) THREAD_ATTRIBUTE(acquire_capability(mutex)) : _mutex(mutex) {
    _mutex.lock();
  }
  ~LockGuard() THREAD_ATTRIBUTE(release_capability()) { _mutex.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Mutex& _mutex;
};

}  // namespace ravelin
