#include "platform/linux/StandardError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/posix/StandardErrorTest.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;

const NamedWriter LINUX{"Linux", writeToStandardError};

std::string nameOfWriter(const testing::TestParamInfo<NamedWriter>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Linux, StandardErrorTest, testing::Values(LINUX), nameOfWriter);

class LinuxStandardErrorTest : public StandardErrorTest {};

INSTANTIATE_TEST_SUITE_P(Linux, LinuxStandardErrorTest, testing::Values(LINUX), nameOfWriter);

/// Makes a system call fail for the rest of this process, optionally only with this flag among the
/// bits of its third argument: what an older system or a stricter container does.
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

TEST_P(LinuxStandardErrorTest, NeverWaitsForASocketOfWholePacketsThatNobodyReads) {
  const Channel channel = Channel::sockets(SOCK_SEQPACKET);
  const StandardErrorReplacement replacement(channel.writer());
  write("one\n");
  EXPECT_EQ(channel.read(), "one\n");
  expectOnlyWholeLinesAfterFilling(channel);
}

TEST_P(LinuxStandardErrorTest, OlderSystemsBehaveAlike) {
  for (void (*become)() : {becomeOlderSystem, becomeOlderSystemWithoutProc}) {
    EXPECT_EQ(exitOf([become] {
                Channel channel = Channel::pipe();
                ::dup2(channel.writer(), STDERR_FILENO);
                become();
                const int mode = ::fcntl(channel.writer(), F_GETFL);
                write("one\n");
                if (channel.read() != "one\n") {
                  ::_exit(2);
                }
                expectOnlyWholeLinesAfterFilling(channel);
                write(std::string(LONG_LENGTH, 'x').append("\n"));
                const std::string cut = channel.read();
                if (cut.size() < 4096 || cut.find_first_not_of('x') != std::string::npos) {
                  ::_exit(3);
                }
                write("next\n");
                if (channel.read() != "\nnext\n" || ::fcntl(channel.writer(), F_GETFL) != mode ||
                    ::testing::Test::HasFailure()) {
                  ::_exit(4);
                }
                channel.closeReader();
                write("nobody hears this\n");
              }),
              42);
  }
}

class StandardErrorTerminalTest : public StandardErrorTest {
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

INSTANTIATE_TEST_SUITE_P(Linux, StandardErrorTerminalTest, testing::Values(LINUX), nameOfWriter);

TEST_P(StandardErrorTerminalTest, WritesToTerminal) {
  const StandardErrorReplacement replacement(_terminal);
  write("one\n");
  write("two\n");
  EXPECT_EQ(shownUpTo("two\r\n"), "one\r\ntwo\r\n");
}

TEST_P(StandardErrorTerminalTest, NeverWaitsForTerminalThatNobodyReads) {
  const StandardErrorReplacement replacement(_terminal);
  writeUntilFull();
  const std::string shown = shownUpTo("no such line", 200);
  EXPECT_EQ(shown.substr(0, 39), "a line that fills what nobody empties\r\n");
  write("next\n");
  const std::string more = shown + shownUpTo("next\r\n");
  EXPECT_EQ(more.substr(more.size() - 8), "\r\nnext\r\n");
}

TEST_P(StandardErrorTerminalTest, NeverWaitsForStoppedTerminal) {
  const StandardErrorReplacement replacement(_terminal);
  ASSERT_EQ(::tcflow(_terminal, TCOOFF), 0);
  write("lost\n");
  ASSERT_EQ(::tcflow(_terminal, TCOON), 0);
  write("heard\n");
  EXPECT_EQ(shownUpTo("heard\r\n"), "heard\r\n");
}

TEST_P(StandardErrorTerminalTest, TerminalDoesNotStopBackgroundProcess) {
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
                write("from behind\n");
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
