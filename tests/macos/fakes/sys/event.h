// Of the kernel's event queues: one that is readable when a process has ended. A process that has
// ended already cannot be watched, even if nobody has waited for it.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

struct kevent {
  uintptr_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  intptr_t data;
  void* udata;
};

enum { EVFILT_PROC = -5 };
enum { EV_ADD = 0x0001, EV_ENABLE = 0x0004, EV_ONESHOT = 0x0010 };
#define NOTE_EXIT 0x80000000U

inline int kqueue(void) { return ::eventfd(0, EFD_CLOEXEC); }

/// The queue becomes what the kernel here has for the process.
inline int kevent(int queue, const struct kevent* changes, int changeCount,
                  struct kevent* /*events*/, int /*eventCount*/,
                  const struct timespec* /*timeout*/) {
  for (int index = 0; index < changeCount; ++index) {
    if (changes[index].filter != EVFILT_PROC) {
      errno = EINVAL;
      return -1;
    }
    const auto child = static_cast<pid_t>(changes[index].ident);
    siginfo_t end{};
    if (::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        end.si_pid == child) {
      errno = ESRCH;
      return -1;
    }
    if (changes[index].fflags != NOTE_EXIT) {
      continue;
    }
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, child, 0U));
    if (process < 0) {
      return -1;
    }
    ::dup3(process, queue, O_CLOEXEC);
    ::close(process);
  }
  return 0;
}
