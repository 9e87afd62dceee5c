#include "platform/posix/StandardError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "support/linux/StandardErrorReplacement.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;

constexpr int ENOUGH_TO_FILL_ANYTHING = 20000;
constexpr std::size_t LONG_LENGTH = std::size_t{1024} * 1024;

void writeUntilFull() {
  for (int line = 0; line < ENOUGH_TO_FILL_ANYTHING; ++line) {
    writeToStandardError("a line that fills what nobody empties\n");
  }
}

/// What a peer sees who reads only after everything was written: whole lines, as many as fitted,
/// and the next one again whole.
void expectOnlyWholeLinesAfterFilling(const Channel& channel) {
  writeUntilFull();
  std::string received = channel.read();
  EXPECT_FALSE(received.empty());
  writeToStandardError("next\n");
  received += channel.read();
  const std::string line = "a line that fills what nobody empties\n";
  std::size_t position = 0;
  while (received.compare(position, line.size(), line) == 0) {
    position += line.size();
  }
  const std::string rest = received.substr(position);
  // At most one line was cut, and then the next began on a line of its own.
  EXPECT_EQ(rest.substr(rest.size() - std::min<std::size_t>(rest.size(), 5)), "next\n");
  const std::string torn = rest.substr(0, rest.size() - std::min<std::size_t>(rest.size(), 5));
  EXPECT_TRUE(torn.empty() || torn.back() == '\n') << torn;
  EXPECT_LE(torn.size(), line.size());
}

/// The exit status of a child process that does the action, or minus the signal that ended it.
template <class Action>
int exitOf(const Action& action) {
  const pid_t child = ::fork();
  if (child == 0) {
    action();
    ::_exit(42);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

/// Makes a system call fail for the rest of this process, optionally only with this flag among the
/// bits of its third argument: as on an older system or in a stricter container.
void denySystemCall(unsigned number, int error, unsigned flag = 0) {
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, flag == 0 ? ~0U : flag, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    ::_exit(1);
  }
}

/// A kernel whose pipes cannot be asked not to wait. pwritev2's third argument is the count, 1.
void becomeOlderSystem() { denySystemCall(SYS_pwritev2, EOPNOTSUPP); }

/// As above, where the descriptors cannot be opened by their names either.
void becomeOlderSystemWithoutProc() {
  becomeOlderSystem();
  denySystemCall(SYS_openat, ENOENT, O_NONBLOCK);
}

TEST(StandardErrorTest, WritesToPipe) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  writeToStandardError("one\n");
  writeToStandardError("two\n");
  EXPECT_EQ(channel.read(), "one\ntwo\n");
}

TEST(StandardErrorTest, NeverWaitsForPipeThatNobodyReads) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  expectOnlyWholeLinesAfterFilling(channel);
}

TEST(StandardErrorTest, NeverWaitsForSocketsThatNobodyReads) {
  for (const int type : {SOCK_STREAM, SOCK_DGRAM, SOCK_SEQPACKET}) {
    const Channel channel = Channel::sockets(type);
    const StandardErrorReplacement replacement(channel.writer());
    writeToStandardError("one\n");
    EXPECT_EQ(channel.read(), "one\n");
    expectOnlyWholeLinesAfterFilling(channel);
  }
}

TEST(StandardErrorTest, LeavesModeOfOpenFileAlone) {
  for (const Channel& channel : {Channel::pipe(), Channel::sockets(SOCK_STREAM)}) {
    const int mode = ::fcntl(channel.writer(), F_GETFL);
    const StandardErrorReplacement replacement(channel.writer());
    std::atomic<bool> done = false;
    std::atomic<bool> changed = false;
    std::thread observer([&] {
      while (!done) {
        changed = changed || ::fcntl(channel.writer(), F_GETFL) != mode;
      }
    });
    writeUntilFull();
    done = true;
    observer.join();
    EXPECT_FALSE(changed);
  }
}

TEST(StandardErrorTest, BeginsNewLineAfterOneThatWasCut) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  writeToStandardError(std::string(LONG_LENGTH, 'x').append("\n"));
  const std::string cut = channel.read();
  EXPECT_EQ(cut, std::string(cut.size(), 'x'));
  EXPECT_GE(cut.size(), 4096U);
  writeToStandardError("next\n");
  writeToStandardError("after\n");
  EXPECT_EQ(channel.read(), "\nnext\nafter\n");
}

TEST(StandardErrorTest, ClosedReaderEndsNothing) {
  EXPECT_EQ(exitOf([] {
              for (const auto& make :
                   {+[] { return Channel::pipe(); }, +[] { return Channel::sockets(SOCK_STREAM); },
                    +[] { return Channel::sockets(SOCK_DGRAM); }}) {
                Channel channel = make();
                ::dup2(channel.writer(), STDERR_FILENO);
                channel.closeReader();
                for (int line = 0; line < 100; ++line) {
                  writeToStandardError("nobody hears this\n");
                }
              }
            }),
            42);
}

TEST(StandardErrorTest, LeavesSignalsAsTheyWere) {
  Channel channel = Channel::pipe();
  channel.closeReader();
  sigset_t before{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    const StandardErrorReplacement replacement(channel.writer());
    writeToStandardError("nobody hears this\n");
  }
  sigset_t after{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
  sigset_t pending{};
  ::sigpending(&pending);
  struct sigaction action{};
  ::sigaction(SIGPIPE, nullptr, &action);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
    EXPECT_EQ(::sigismember(&before, signal), ::sigismember(&after, signal));
    EXPECT_EQ(::sigismember(&pending, signal), 0);
  }
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST(StandardErrorTest, OtherBrokenPipesStillEndTheProcess) {
  EXPECT_EQ(exitOf([] {
              Channel channel = Channel::pipe();
              ::dup2(channel.writer(), STDERR_FILENO);
              channel.closeReader();
              writeToStandardError("nobody hears this\n");
              (void)!::write(channel.writer(), "x", 1);
            }),
            -SIGPIPE);
}

TEST(StandardErrorTest, OlderSystemsBehaveAlike) {
  for (void (*become)() : {becomeOlderSystem, becomeOlderSystemWithoutProc}) {
    EXPECT_EQ(exitOf([become] {
                Channel channel = Channel::pipe();
                ::dup2(channel.writer(), STDERR_FILENO);
                become();
                const int mode = ::fcntl(channel.writer(), F_GETFL);
                writeToStandardError("one\n");
                if (channel.read() != "one\n") {
                  ::_exit(2);
                }
                expectOnlyWholeLinesAfterFilling(channel);
                writeToStandardError(std::string(LONG_LENGTH, 'x').append("\n"));
                const std::string cut = channel.read();
                if (cut.size() < 4096 || cut.find_first_not_of('x') != std::string::npos) {
                  ::_exit(3);
                }
                writeToStandardError("next\n");
                if (channel.read() != "\nnext\n" || ::fcntl(channel.writer(), F_GETFL) != mode ||
                    ::testing::Test::HasFailure()) {
                  ::_exit(4);
                }
                channel.closeReader();
                writeToStandardError("nobody hears this\n");
              }),
              42);
  }
}

TEST(StandardErrorTest, AppendsToFiles) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/errors";
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string large(LONG_LENGTH, 'x');
  {
    const StandardErrorReplacement replacement(file);
    writeToStandardError(large + "\n");
    writeToStandardError("next\n");
  }
  ::close(file);
  std::ifstream stream(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), large + "\nnext\n");
}

TEST(StandardErrorTest, FileAtItsSizeLimitEndsNothing) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/errors";
  EXPECT_EQ(exitOf([&path] {
              const rlimit limit{10, 10};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              ::dup2(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
              for (int line = 0; line < 10; ++line) {
                writeToStandardError("1234567\n");
              }
            }),
            42);
  std::ifstream stream(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "1234567\n12");
}

TEST(StandardErrorTest, ClosedStandardErrorEndsNothing) {
  EXPECT_EQ(exitOf([] {
              ::close(STDERR_FILENO);
              writeToStandardError("nobody hears this\n");
            }),
            42);
}

class StandardErrorTerminalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    _person = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(_person, 0);
    ASSERT_EQ(::grantpt(_person), 0);
    ASSERT_EQ(::unlockpt(_person), 0);
    _terminal = ::open(::ptsname(_person), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(_terminal, 0);
  }
  void TearDown() override {
    ::close(_terminal);
    ::close(_person);
  }

  /// What appears on the screen up to this line, or until nothing more does for so long.
  [[nodiscard]] std::string shownUpTo(const std::string& line, int milliseconds = 10000) const {
    std::string shown;
    std::array<char, 4096> buffer{};
    pollfd ready{_person, POLLIN, 0};
    while (shown.find(line) == std::string::npos && ::poll(&ready, 1, milliseconds) > 0) {
      const ssize_t length = ::read(_person, buffer.data(), buffer.size());
      if (length <= 0) {
        break;
      }
      shown.append(buffer.data(), static_cast<std::size_t>(length));
    }
    return shown;
  }

  int _person = -1;
  int _terminal = -1;
};

TEST_F(StandardErrorTerminalTest, WritesToTerminal) {
  const StandardErrorReplacement replacement(_terminal);
  writeToStandardError("one\n");
  writeToStandardError("two\n");
  EXPECT_EQ(shownUpTo("two\r\n"), "one\r\ntwo\r\n");
}

TEST_F(StandardErrorTerminalTest, NeverWaitsForTerminalThatNobodyReads) {
  const StandardErrorReplacement replacement(_terminal);
  writeUntilFull();
  const std::string shown = shownUpTo("no such line", 200);
  EXPECT_EQ(shown.substr(0, 39), "a line that fills what nobody empties\r\n");
  writeToStandardError("next\n");
  const std::string more = shown + shownUpTo("next\r\n");
  EXPECT_EQ(more.substr(more.size() - 8), "\r\nnext\r\n");
}

TEST_F(StandardErrorTerminalTest, NeverWaitsForStoppedTerminal) {
  const StandardErrorReplacement replacement(_terminal);
  ASSERT_EQ(::tcflow(_terminal, TCOOFF), 0);
  writeToStandardError("lost\n");
  ASSERT_EQ(::tcflow(_terminal, TCOON), 0);
  writeToStandardError("heard\n");
  EXPECT_EQ(shownUpTo("heard\r\n"), "heard\r\n");
}

TEST_F(StandardErrorTerminalTest, TerminalDoesNotStopBackgroundProcess) {
  EXPECT_EQ(exitOf([this] {
              // A session on this terminal, in which a child of ours is in the background.
              ::setsid();
              if (::ioctl(_terminal, TIOCSCTTY, 0) != 0) {
                ::_exit(1);
              }
              termios settings{};
              ::tcgetattr(_terminal, &settings);
              settings.c_lflag |= TOSTOP;
              ::tcsetattr(_terminal, TCSANOW, &settings);
              const pid_t background = ::fork();
              if (background == 0) {
                ::setpgid(0, 0);
                ::dup2(_terminal, STDERR_FILENO);
                writeToStandardError("from behind\n");
                ::_exit(7);
              }
              int status = 0;
              ::waitpid(background, &status, WUNTRACED);
              ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 3);
            }),
            7);
  EXPECT_EQ(shownUpTo("from behind\r\n"), "from behind\r\n");
}

}  // namespace
}  // namespace ravelin::platform
