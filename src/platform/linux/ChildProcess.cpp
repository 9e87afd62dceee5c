#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "platform/Precondition.h"
#include "platform/Service.h"
#include "platform/linux/Descriptor.h"

namespace ravelin::platform {

namespace {

constexpr std::size_t OUTPUT_LIMIT = std::size_t{16} * 1024 * 1024;

constexpr std::size_t BUFFER_SIZE = 65536;

/// More than a pipe holds.
constexpr std::size_t PIPE_LIMIT = std::size_t{2} * 1024 * 1024;

using Clock = std::chrono::steady_clock;

std::string reasonOf(int error) { return std::generic_category().message(error); }

/// What the child has open, and how it takes signals.
class SpawnSettings {
 public:
  SpawnSettings() {
    ::posix_spawn_file_actions_init(&_actions);
    ::posix_spawnattr_init(&_attributes);
    ::posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&_attributes, &none);
    ::posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&_attributes);
    ::posix_spawn_file_actions_destroy(&_actions);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  void writeTo(int descriptor) {
    ::posix_spawn_file_actions_adddup2(&_actions, descriptor, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&_actions, descriptor, STDERR_FILENO);
  }

  pid_t spawn(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<char*> words{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
      words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    pid_t child = -1;
    const int error =
        ::posix_spawn(&child, path.c_str(), &_actions, &_attributes, words.data(), environ);
    if (error != 0) {
      throw LaunchException("cannot start " + path + ": " + reasonOf(error));
    }
    return child;
  }

 private:
  posix_spawn_file_actions_t _actions{};
  posix_spawnattr_t _attributes{};
};

/// One child that has been started, until it is known how it ended.
class Child {
 public:
  Child(pid_t pid, Descriptor output, std::optional<std::chrono::milliseconds> limit)
      : _pid(pid),
        _ended(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))),
        _output(std::move(output)) {
    if (limit) {
      _deadline = Clock::now() + *limit;
    }
    if (!_ended.isOpen()) {
      const std::string reason = reasonOf(errno);
      ::kill(_pid, SIGKILL);
      static_cast<void>(_reap());
      throw LaunchException("cannot watch a child process: " + reason);
    }
  }

  ChildResult wait() {
    while (!_hasEnded()) {
      if (_deadline && Clock::now() >= *_deadline) {
        _result.timedOut = true;
        ::kill(_pid, SIGKILL);
        break;
      }
    }
    const int status = _reap();
    _result.wasSignalled = WIFSIGNALED(status);
    _result.terminationStatus = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    // What was written before the end is still in the pipe; a grandchild may go on writing for
    // ever.
    for (std::size_t rest = 0; rest < PIPE_LIMIT && _isReadable() && _readSome();
         rest += BUFFER_SIZE) {
    }
    return std::move(_result);
  }

 private:
  /// Waits until the child writes, ends or the time is up; whether it has ended.
  bool _hasEnded() {
    // A descriptor of -1 is passed over.
    std::array<pollfd, 2> watched{{{_ended.number(), POLLIN, 0}, {_output.number(), POLLIN, 0}}};
    ::poll(watched.data(), watched.size(), _remainingMilliseconds());
    if (watched[1].revents != 0 && !_readSome()) {
      _output.close();
    }
    return watched[0].revents != 0;
  }

  [[nodiscard]] int _remainingMilliseconds() const {
    if (!_deadline) {
      return -1;
    }
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*_deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(remaining.count(), 0, 1'000'000));
  }

  [[nodiscard]] bool _isReadable() const {
    pollfd watched{_output.number(), POLLIN, 0};
    return ::poll(&watched, 1, 0) > 0;
  }

  [[nodiscard]] int _reap() const {
    int status = 0;
    while (::waitpid(_pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
  }

  /// False at the end of the output.
  bool _readSome() {
    std::array<char, BUFFER_SIZE> buffer;  // NOLINT(*-member-init): filled as far as it is used
    const ssize_t size = ::read(_output.number(), buffer.data(), buffer.size());
    if (size <= 0) {
      return size < 0 && errno == EINTR;
    }
    const std::size_t room = OUTPUT_LIMIT - _result.output.size();
    _result.output.append(buffer.data(), std::min(room, static_cast<std::size_t>(size)));
    return true;
  }

  pid_t _pid;
  Descriptor _ended;
  Descriptor _output;
  std::optional<Clock::time_point> _deadline;
  ChildResult _result;
};

class LinuxChildProcesses final : public ChildProcesses {
 public:
  ChildResult run(const std::string& path, const std::vector<std::string>& arguments, Output output,
                  std::optional<std::chrono::milliseconds> limit) override {
    SpawnSettings settings;
    Descriptor readEnd;
    Descriptor writeEnd;
    if (output == Output::collected) {
      std::array<int, 2> ends{};
      if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw LaunchException("cannot start " + path + ": " + reasonOf(errno));
      }
      readEnd = Descriptor(ends[0]);
      writeEnd = Descriptor(ends[1]);
      settings.writeTo(writeEnd.number());
    }
    const pid_t child = settings.spawn(path, arguments);
    writeEnd.close();
    return Child(child, std::move(readEnd), limit).wait();
  }
};

}  // namespace

template <>
ChildProcesses& native<ChildProcesses>() {
  static auto& instance = *new LinuxChildProcesses;
  return instance;
}

}  // namespace ravelin::platform
