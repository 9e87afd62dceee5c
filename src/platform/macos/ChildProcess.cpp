#include "platform/ChildProcess.h"

#include <crt_externs.h>
#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/posix/PosixChildProcesses.h"

namespace ravelin::platform {

namespace {

class MacProcessSystem final : public ProcessSystem {
 public:
  [[nodiscard]] std::optional<std::pair<Descriptor, Descriptor>> pipe() const override {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
      return std::nullopt;
    }
    for (const int end : ends) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    return std::pair(Descriptor(ends[0]), Descriptor(ends[1]));
  }

  [[nodiscard]] char** environment() const override { return *_NSGetEnviron(); }

  // The system's libraries open what they like, and nothing here can be close-on-exec from birth.
  void keepDescriptorsBack(posix_spawnattr_t& attributes,
                           posix_spawn_file_actions_t& actions) const override {
    short flags = 0;
    ::posix_spawnattr_getflags(&attributes, &flags);
    ::posix_spawnattr_setflags(&attributes,
                               static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      ::posix_spawn_file_actions_addinherit_np(&actions, standard);
    }
  }

  [[nodiscard]] Descriptor watchEndOf(pid_t child) const override {
    Descriptor events(::kqueue());
    const struct kevent end{.ident = static_cast<uintptr_t>(child),
                            .filter = EVFILT_PROC,
                            .flags = EV_ADD,
                            .fflags = NOTE_EXIT,
                            .data = 0,
                            .udata = nullptr};
    if (!events.isOpen() || ::kevent(events.number(), &end, 1, nullptr, 0, nullptr) == 0) {
      return events;
    }
    return errno == ESRCH ? _alwaysReadable() : Descriptor();
  }

 private:
  /// For a child that has ended before anybody could watch it: a pipe that nobody writes to.
  [[nodiscard]] Descriptor _alwaysReadable() const {
    auto ends = pipe();
    return ends ? std::move(ends->first) : Descriptor();
  }
};

}  // namespace

template <>
ChildProcesses& native<ChildProcesses>() {
  static const auto& system = *new MacProcessSystem;
  static auto& instance = *new PosixChildProcesses(system);
  return instance;
}

}  // namespace ravelin::platform
