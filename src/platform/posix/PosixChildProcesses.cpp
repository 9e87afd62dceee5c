#include "platform/posix/PosixChildProcesses.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

#include "base/ThreadSafety.h"
#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

namespace {

constexpr std::size_t OUTPUT_LIMIT = std::size_t{16} * 1024 * 1024;

constexpr std::size_t BUFFER_SIZE = 65536;

/// More than a pipe holds.
constexpr std::size_t PIPE_LIMIT = std::size_t{2} * 1024 * 1024;

using Clock = std::chrono::steady_clock;

/// How long a child that has been killed may take to end.
constexpr std::chrono::seconds KILL_LIMIT{1};
constexpr std::chrono::milliseconds KILL_PERIOD{5};

constexpr std::size_t ABANDONED_LIMIT = 16;

/// The status that is returned for a child that other code has already waited for.
constexpr int UNKNOWN_STATUS = -1;

/// A process whose parent ignored SIGCHLD ignores it, too, and then the system does not keep the
/// status of its children.
void makeStatusesKnown() {
  struct sigaction action = {};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 &&
      (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0)) {
    action.sa_flags &= ~SA_NOCLDWAIT;
    if (action.sa_handler == SIG_IGN) {
      action.sa_handler = SIG_DFL;
    }
    ::sigaction(SIGCHLD, &action, nullptr);
  }
}

std::string reasonOf(int error) { return std::generic_category().message(error); }

/// Children that were given up before they had ended, until they have. Any thread.
class Abandoned {
 public:
  void add(pid_t child) {
    const LockGuard lock(_mutex);
    _children.push_back(child);
  }

  /// Forgets those that have ended meanwhile; whether the others are so few that one more would do
  /// no harm.
  bool areFew() {
    const LockGuard lock(_mutex);
    std::erase_if(_children, [](pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
    return _children.size() < ABANDONED_LIMIT;
  }

 private:
  Mutex _mutex;
  std::vector<pid_t> _children GUARDED_BY(_mutex);
};

Abandoned& abandoned() {
  static auto& instance = *new Abandoned;
  return instance;
}

/// What the child has open, and how it takes signals.
class SpawnSettings {
 public:
  SpawnSettings() {
    ::posix_spawn_file_actions_init(&_actions);
    ::posix_spawnattr_init(&_attributes);
    ::posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // Without colons in front, since some systems have macros here.
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&_attributes, &none);
    sigset_t all;
    sigfillset(&all);
    ::posix_spawnattr_setsigdefault(&_attributes, &all);
    ::posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&_attributes);
    ::posix_spawn_file_actions_destroy(&_actions);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  void writeTo(int descriptor, ChildProcesses::Output output) {
    ::posix_spawn_file_actions_adddup2(&_actions, descriptor, STDOUT_FILENO);
    if (output == ChildProcesses::Output::collected) {
      ::posix_spawn_file_actions_adddup2(&_actions, descriptor, STDERR_FILENO);
    }
  }

  pid_t spawn(const ProcessSystem& system, const std::string& path,
              const std::vector<std::string>& arguments) {
    system.keepDescriptorsBack(_attributes, _actions);
    std::vector<char*> words{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
      words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    pid_t child = -1;
    const int error = ::posix_spawn(&child, path.c_str(), &_actions, &_attributes, words.data(),
                                    system.environment());
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
  Child(const ProcessSystem& system, pid_t pid, Descriptor output,
        std::optional<std::chrono::milliseconds> limit)
      : _pid(pid), _ended(system.watchEndOf(pid)), _output(std::move(output)) {
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
    if (_result.timedOut && !_endsSoon()) {
      abandoned().add(_pid);
      _result.wasSignalled = true;
      _result.terminationStatus = SIGKILL;
    } else if (const std::optional<int> status = _reap()) {
      _result.wasSignalled = WIFSIGNALED(*status);
      _result.terminationStatus = WIFSIGNALED(*status) ? WTERMSIG(*status) : WEXITSTATUS(*status);
    } else {
      _result.terminationStatus = UNKNOWN_STATUS;
    }
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

  /// One that waits for a file system that does not answer does not even end when it is killed.
  [[nodiscard]] bool _endsSoon() const {
    const auto deadline = Clock::now() + KILL_LIMIT;
    for (;;) {
      siginfo_t ended{};
      if (::waitid(P_PID, static_cast<id_t>(_pid), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
          ended.si_pid != 0) {
        return true;
      }
      if (Clock::now() >= deadline) {
        return false;
      }
      std::this_thread::sleep_for(KILL_PERIOD);
    }
  }

  /// How it ended, or nothing when the system does not tell.
  [[nodiscard]] std::optional<int> _reap() const {
    int status = 0;
    pid_t reaped = -1;
    do {
      reaped = ::waitpid(_pid, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    return reaped == _pid ? std::optional(status) : std::nullopt;
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

}  // namespace

ChildResult PosixChildProcesses::run(const std::string& path,
                                     const std::vector<std::string>& arguments, Output output,
                                     std::optional<std::chrono::milliseconds> limit) {
  makeStatusesKnown();
  if (!abandoned().areFew()) {
    throw LaunchException("cannot start " + path + ": too many programs before it do not end");
  }
  SpawnSettings settings;
  Descriptor readEnd;
  Descriptor writeEnd;
  if (output != Output::inherited) {
    auto ends = _system.pipe();
    if (!ends) {
      throw LaunchException("cannot start " + path + ": " + reasonOf(errno));
    }
    std::tie(readEnd, writeEnd) = std::move(*ends);
    settings.writeTo(writeEnd.number(), output);
  }
  const pid_t child = settings.spawn(_system, path, arguments);
  writeEnd.close();
  return Child(_system, child, std::move(readEnd), limit).wait();
}

}  // namespace ravelin::platform
