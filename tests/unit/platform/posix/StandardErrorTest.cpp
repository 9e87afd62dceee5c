#include "platform/posix/StandardError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "StandardErrorTest.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

using test::Channel;
using test::StandardErrorReplacement;

void writeAsEverySystemCan(std::string line) {
  static auto& writer = *new StandardErrorWriter;
  writer.write(std::move(line));
}

INSTANTIATE_TEST_SUITE_P(Posix, StandardErrorTest,
                         testing::Values(NamedWriter{"EverySystem", writeAsEverySystemCan}),
                         [](const auto& suite) { return suite.param.name; });

TEST_P(StandardErrorTest, WritesToPipe) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  write("one\n");
  write("two\n");
  EXPECT_EQ(channel.read(), "one\ntwo\n");
}

TEST_P(StandardErrorTest, NeverWaitsForPipeThatNobodyReads) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  expectOnlyWholeLinesAfterFilling(channel);
}

TEST_P(StandardErrorTest, NeverWaitsForSocketsThatNobodyReads) {
  for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
    const Channel channel = Channel::sockets(type);
    const StandardErrorReplacement replacement(channel.writer());
    write("one\n");
    EXPECT_EQ(channel.read(), "one\n");
    expectOnlyWholeLinesAfterFilling(channel);
  }
}

TEST_P(StandardErrorTest, LeavesModeOfOpenFileAlone) {
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

TEST_P(StandardErrorTest, BeginsNewLineAfterOneThatWasCut) {
  const Channel channel = Channel::pipe();
  const StandardErrorReplacement replacement(channel.writer());
  write(std::string(LONG_LENGTH, 'x').append("\n"));
  const std::string cut = channel.read();
  EXPECT_EQ(cut, std::string(cut.size(), 'x'));
  EXPECT_GE(cut.size(), 4096U);
  write("next\n");
  write("after\n");
  EXPECT_EQ(channel.read(), "\nnext\nafter\n");
}

TEST_P(StandardErrorTest, ClosedReaderEndsNothing) {
  EXPECT_EQ(exitOf([] {
              for (const auto& make :
                   {+[] { return Channel::pipe(); }, +[] { return Channel::sockets(SOCK_STREAM); },
                    +[] { return Channel::sockets(SOCK_DGRAM); }}) {
                Channel channel = make();
                ::dup2(channel.writer(), STDERR_FILENO);
                channel.closeReader();
                for (int line = 0; line < 100; ++line) {
                  write("nobody hears this\n");
                }
              }
            }),
            42);
}

TEST_P(StandardErrorTest, LeavesSignalsAsTheyWere) {
  Channel channel = Channel::pipe();
  channel.closeReader();
  sigset_t before{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    const StandardErrorReplacement replacement(channel.writer());
    write("nobody hears this\n");
  }
  sigset_t after{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
  sigset_t pending{};
  ::sigpending(&pending);
  struct sigaction action{};
  ::sigaction(SIGPIPE, nullptr, &action);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
    EXPECT_EQ(sigismember(&pending, signal), 0);
  }
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_P(StandardErrorTest, OtherBrokenPipesStillEndTheProcess) {
  EXPECT_EQ(exitOf([] {
              Channel channel = Channel::pipe();
              ::dup2(channel.writer(), STDERR_FILENO);
              channel.closeReader();
              write("nobody hears this\n");
              (void)!::write(channel.writer(), "x", 1);
            }),
            -SIGPIPE);
}

TEST_P(StandardErrorTest, AppendsToFiles) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/errors";
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string large(LONG_LENGTH, 'x');
  {
    const StandardErrorReplacement replacement(file);
    write(large + "\n");
    write("next\n");
  }
  ::close(file);
  std::ifstream stream(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), large + "\nnext\n");
}

TEST_P(StandardErrorTest, FileAtItsSizeLimitEndsNothing) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() + "/errors";
  EXPECT_EQ(exitOf([&path] {
              const rlimit limit{10, 10};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              ::dup2(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
              for (int line = 0; line < 10; ++line) {
                write("1234567\n");
              }
            }),
            42);
  std::ifstream stream(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "1234567\n12");
}

TEST_P(StandardErrorTest, ClosedStandardErrorEndsNothing) {
  EXPECT_EQ(exitOf([] {
              ::close(STDERR_FILENO);
              write("nobody hears this\n");
            }),
            42);
}

}  // namespace
}  // namespace ravelin::platform
