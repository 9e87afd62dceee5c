#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace ravelin::test {

/// A system call, by its number and what some of its arguments are.
struct SystemCall {
  struct Argument {
    unsigned place;
    std::uint32_t value;
  };
  std::uint32_t number;
  std::vector<Argument> arguments;
};

/// From now on the system acts like this on the call in this thread, and in what it starts. There
/// is no way back: for processes of death tests. -1 when the system refuses.
inline long install(const SystemCall& call, std::uint32_t action, unsigned flags = 0) {
  std::vector<sock_filter> filter;
  const auto add = [&](unsigned code, std::size_t value) {
    filter.push_back({.code = static_cast<std::uint16_t>(code),
                      .jt = 0,
                      .jf = 0,
                      .k = static_cast<std::uint32_t>(value)});
  };
  const auto addComparison = [&](std::size_t offset, std::uint32_t value) {
    add(BPF_LD | BPF_W | BPF_ABS, offset);
    add(BPF_JMP | BPF_JEQ | BPF_K, value);
  };
  addComparison(offsetof(seccomp_data, nr), call.number);
  for (const auto& [place, value] : call.arguments) {
    addComparison(offsetof(seccomp_data, args) + sizeof(std::uint64_t) * place, value);
  }
  add(BPF_RET | BPF_K, action);
  // Unless all are equal, jump to the end.
  for (std::size_t at = 1; at + 1 < filter.size(); at += 2) {
    filter[at].jf = static_cast<std::uint8_t>(filter.size() - at - 1);
  }
  add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  const sock_fprog program{.len = static_cast<unsigned short>(filter.size()),
                           .filter = filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    return -1;
  }
  return ::syscall(__NR_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program);
}

/// From now on the call fails in this thread, and in what it starts, with the error.
inline bool refuse(const SystemCall& call, int error) {
  return install(call, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)) == 0;
}

/// From now on the call ends in this thread, and in what it starts, as the function says.
inline bool answer(const SystemCall& call, std::function<void(seccomp_notif_resp&)> say) {
  const long listener = install(call, SECCOMP_RET_USER_NOTIF, SECCOMP_FILTER_FLAG_NEW_LISTENER);
  if (listener < 0) {
    return false;
  }
  std::thread([listener = static_cast<int>(listener), say = std::move(say)] {
    for (;;) {
      seccomp_notif notice{};
      if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &notice) != 0) {
        continue;
      }
      seccomp_notif_resp response{};
      response.id = notice.id;
      say(response);
      ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
  }).detach();
  return true;
}

/// From now on the call does nothing in this thread, and in what it starts, but return the value; a
/// negative one below those that are errors comes out as it is, without an error.
inline bool haveReturn(const SystemCall& call, std::int64_t value) {
  return answer(call, [value](seccomp_notif_resp& response) { response.val = value; });
}

/// The next such call fails in this thread, or in what it starts, with the error; later ones do
/// not.
inline bool refuseOnce(const SystemCall& call, int error) {
  return answer(call, [error, isNext = true](seccomp_notif_resp& response) mutable {
    const bool isRefused = std::exchange(isNext, false);
    response.error = isRefused ? -error : 0;
    response.flags = isRefused ? 0 : SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  });
}

}  // namespace ravelin::test
