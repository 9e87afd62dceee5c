#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

#include "platform/Service.h"
#include "platform/posix/PosixChildProcesses.h"

namespace ravelin::platform {

namespace {

class LinuxProcessSystem final : public ProcessSystem {
 public:
  [[nodiscard]] std::optional<std::pair<Descriptor, Descriptor>> pipe() const override {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      return std::nullopt;
    }
    return std::pair(Descriptor(ends[0]), Descriptor(ends[1]));
  }

  [[nodiscard]] char** environment() const override { return environ; }

  void keepDescriptorsBack(posix_spawnattr_t& /*attributes*/,
                           posix_spawn_file_actions_t& /*actions*/) const override {
    // Every descriptor of this process is close-on-exec from birth.
  }

  [[nodiscard]] Descriptor watchEndOf(pid_t child) const override {
    return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  }
};

}  // namespace

template <>
ChildProcesses& native<ChildProcesses>() {
  static const auto& system = *new LinuxProcessSystem;
  static auto& instance = *new PosixChildProcesses(system);
  return instance;
}

}  // namespace ravelin::platform
