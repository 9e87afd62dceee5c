#include "platform/RunLoopSocket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/RunLoop.h"
#include "support/Pipe.h"

namespace ravelin::platform {
namespace {

using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using Seconds = RunLoop::Seconds;

/// A non-blocking UDP socket bound to a free port of the loopback address; the caller closes it.
int receivingDescriptor() {
  const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return descriptor;
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1 || errno != EBADF; }

class Sender {
 public:
  Sender() : _descriptor(socket(AF_INET, SOCK_DGRAM, 0)) {}
  ~Sender() { close(_descriptor); }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  /// Sends datagrams that hold their number, and returns when they can be read.
  void send(int receiver, int count) const {
    for (int i = 0; i < count; ++i) {
      _sendText(receiver, std::to_string(i));
    }
    // The loopback interface keeps its order: what was sent before this one has arrived, too.
    const int last = receivingDescriptor();
    EXPECT_EQ(fcntl(last, F_SETFL, 0), 0);
    const timeval patience = {10, 0};
    EXPECT_EQ(setsockopt(last, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    _sendText(last, "x");
    char byte = 0;
    EXPECT_EQ(recv(last, &byte, 1, 0), 1);
    close(last);
  }

 private:
  void _sendText(int receiver, const std::string& text) const {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length), 0);
    ASSERT_EQ(sendto(_descriptor, text.data(), text.size(), 0,
                     reinterpret_cast<sockaddr*>(&address), length),
              static_cast<ssize_t>(text.size()));
  }

  int _descriptor;
};

/// Reads datagrams as a user of the socket does, and writes down what happened.
struct Reader {
  std::unique_ptr<RunLoopSocket> socket;
  std::vector<std::string> texts;
  std::vector<bool> furtherReads;
  int failedFirstReads = 0;
  std::function<void()> afterRead;

  explicit Reader(int descriptor = receivingDescriptor()) : socket(makeSocket(descriptor)) {}

  std::unique_ptr<RunLoopSocket> makeSocket(int descriptor) {
    return std::make_unique<RunLoopSocket>(
        descriptor, [this](RunLoopSocket& readable) { return read(readable); });
  }

  bool read(RunLoopSocket& readable) {
    EXPECT_EQ(&readable, socket.get());
    furtherReads.push_back(readable.isFurtherRead());
    std::array<char, 16> buffer = {};
    const ssize_t size = recv(readable.native(), buffer.data(), buffer.size(), 0);
    if (size < 0) {
      failedFirstReads += readable.isFurtherRead() ? 0 : 1;
      return false;
    }
    texts.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    if (afterRead) {
      afterRead();
    }
    return true;
  }
};

TEST(RunLoopSocketTest, ReadsABoundedNumberPerWakeUp) {
  auto& loop = RunLoop::current();
  Reader reader;
  ASSERT_TRUE(reader.socket->addTo(loop));
  Sender().send(reader.socket->native(), 40);

  for (const std::size_t expected : {16U, 16U, 9U}) {  // the last one of the 9 finds nothing
    reader.furtherReads.clear();
    loop.runOnce(Seconds(10));
    ASSERT_EQ(reader.furtherReads.size(), expected);
    for (std::size_t i = 0; i < expected; ++i) {
      EXPECT_EQ(reader.furtherReads[i], i > 0);
    }
    EXPECT_FALSE(reader.socket->isFurtherRead());
  }
  reader.furtherReads.clear();
  loop.runOnce(Seconds(0.1));
  EXPECT_TRUE(reader.furtherReads.empty());

  std::vector<std::string> expectedTexts;
  expectedTexts.reserve(40);
  for (int i = 0; i < 40; ++i) {
    expectedTexts.push_back(std::to_string(i));
  }
  EXPECT_EQ(reader.texts, expectedTexts);
  EXPECT_EQ(reader.failedFirstReads, 0);
}

TEST(RunLoopSocketTest, StopsReadingWhenTheCallbackFoundNothing) {
  auto& loop = RunLoop::current();
  int calls = 0;
  RunLoopSocket socket(receivingDescriptor(), [&](RunLoopSocket& /*socket*/) {
    ++calls;
    return false;
  });
  ASSERT_TRUE(socket.addTo(loop));
  Sender().send(socket.native(), 3);
  loop.runOnce(Seconds(10));
  EXPECT_EQ(calls, 1);
  loop.runOnce(Seconds(10));
  EXPECT_EQ(calls, 2);
}

TEST(RunLoopSocketTest, ADatagramWakesASleepingLoop) {
  auto& loop = RunLoop::current();
  Reader reader;
  ASSERT_TRUE(reader.socket->addTo(loop));
  std::thread sender([descriptor = reader.socket->native()] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Sender().send(descriptor, 1);
  });
  loop.runOnce(RunLoop::DISTANT_FUTURE);
  EXPECT_THAT(reader.texts, ElementsAre("0"));
  sender.join();
}

TEST(RunLoopSocketTest, ReadsWhatCameBeforeItWasAdded) {
  auto& loop = RunLoop::current();
  Reader reader;
  Sender().send(reader.socket->native(), 2);
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(reader.texts, ElementsAre());
  ASSERT_TRUE(reader.socket->addTo(loop));
  loop.runOnce(Seconds(10));
  EXPECT_THAT(reader.texts, ElementsAre("0", "1"));
}

TEST(RunLoopSocketTest, SeveralSocketsAreServedInTurn) {
  auto& loop = RunLoop::current();
  Reader first;
  Reader second;
  ASSERT_TRUE(first.socket->addTo(loop));
  ASSERT_TRUE(second.socket->addTo(loop));
  const Sender sender;
  sender.send(first.socket->native(), 100);
  sender.send(second.socket->native(), 1);
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(10));
  EXPECT_EQ(first.texts.size(), 16U);
  EXPECT_THAT(second.texts, ElementsAre("0"));
}

TEST(RunLoopSocketTest, ASocketThatIsAlwaysReadableDelaysNothingElse) {
  auto& loop = RunLoop::current();
  Reader reader;
  const Sender sender;
  sender.send(reader.socket->native(), 100);
  ASSERT_TRUE(reader.socket->addTo(loop));
  std::vector<std::string> calls;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { calls.emplace_back("timer"); });
  const test::Pipe pipe;
  const auto termination = loop.watchReadable(pipe.reader(), RunLoop::Urgency::termination, [&] {
    pipe.read();
    calls.emplace_back("termination");
  });
  loop.runOnce(Seconds(10));
  ASSERT_EQ(reader.texts.size(), 16U);

  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  loop.perform([&] { calls.emplace_back("action"); });
  pipe.write();
  loop.runOnce(Seconds(10));
  EXPECT_THAT(calls, ElementsAre("termination"));
  for (int turn = 0; turn < 4; ++turn) {
    loop.runOnce(Seconds(10));
  }
  EXPECT_THAT(calls, UnorderedElementsAre("termination", "action", "timer"));
  EXPECT_EQ(reader.texts.size(), 48U);
}

TEST(RunLoopSocketTest, TimersAndActionsGoOnThroughAFlood) {
  auto& loop = RunLoop::current();
  Reader reader;
  ASSERT_TRUE(reader.socket->addTo(loop));
  // What is taken is sent again, so that there is always something to read.
  const Sender sender;
  reader.afterRead = [&] {
    if (reader.texts.size() % 16 == 0) {
      sender.send(reader.socket->native(), 16);
    }
  };
  sender.send(reader.socket->native(), 64);
  int ticks = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.1), [&] { ++ticks; });
  int actions = 0;
  std::thread other([&] {
    for (int i = 0; i < 50; ++i) {
      loop.performAndWait([&] { ++actions; });
    }
  });
  const auto end = steady_clock::now() + std::chrono::seconds(20);
  while ((ticks < 3 || actions < 50 || reader.texts.size() < 1000) && steady_clock::now() < end) {
    loop.runOnce(Seconds(1));
  }
  EXPECT_GE(ticks, 3);
  EXPECT_EQ(actions, 50);
  EXPECT_GE(reader.texts.size(), 1000U);
  while (actions < 50) {
    loop.runOnce(Seconds(1));
  }
  other.join();
}

TEST(RunLoopSocketTest, HasItsDescriptorFromTheStart) {
  const int descriptor = receivingDescriptor();
  const Reader reader(descriptor);
  EXPECT_EQ(reader.socket->native(), descriptor);
  EXPECT_FALSE(reader.socket->isFurtherRead());
}

TEST(RunLoopSocketTest, InvalidatingClosesTheDescriptorOnce) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  const Reader reader(descriptor);
  ASSERT_TRUE(reader.socket->addTo(loop));
  reader.socket->invalidate();
  EXPECT_EQ(reader.socket->native(), -1);
  EXPECT_FALSE(isOpen(descriptor));

  const int next = receivingDescriptor();
  EXPECT_EQ(next, descriptor);  // the lowest free number: a second close would hit this one
  reader.socket->invalidate();
  EXPECT_TRUE(isOpen(next));
  EXPECT_FALSE(reader.socket->addTo(loop));
  close(next);
}

TEST(RunLoopSocketTest, DestroyingClosesTheDescriptor) {
  const int added = receivingDescriptor();
  const int neverAdded = receivingDescriptor();
  {
    const Reader first(added);
    ASSERT_TRUE(first.socket->addTo(RunLoop::current()));
    const Reader second(neverAdded);
  }
  EXPECT_FALSE(isOpen(added));
  EXPECT_FALSE(isOpen(neverAdded));
}

TEST(RunLoopSocketTest, AnInvalidSocketIsServedNoMoreThoughItsSourceLivesOn) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  const int duplicate = dup(descriptor);
  Reader reader(descriptor);
  ASSERT_TRUE(reader.socket->addTo(loop));
  Sender().send(duplicate, 1);
  reader.socket->invalidate();
  const auto start = steady_clock::now();
  loop.runOnce(Seconds(0.2));
  EXPECT_GE(steady_clock::now() - start, Seconds(0.2));
  EXPECT_TRUE(reader.furtherReads.empty());
  close(duplicate);
}

TEST(RunLoopSocketTest, TheNextUserOfTheNumberIsServedForItself) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  Reader old(descriptor);
  ASSERT_TRUE(old.socket->addTo(loop));
  Sender().send(descriptor, 1);
  old.socket->invalidate();
  Reader next;
  ASSERT_EQ(next.socket->native(), descriptor);
  ASSERT_TRUE(next.socket->addTo(loop));
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(next.texts, ElementsAre());
  Sender().send(next.socket->native(), 1);
  loop.runOnce(Seconds(10));
  EXPECT_THAT(next.texts, ElementsAre("0"));
  EXPECT_THAT(old.texts, ElementsAre());
}

TEST(RunLoopSocketTest, TheCallbackMayInvalidateTheSocket) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  Reader reader(descriptor);
  reader.afterRead = [&] { reader.socket->invalidate(); };
  ASSERT_TRUE(reader.socket->addTo(loop));
  Sender().send(descriptor, 5);
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(reader.texts, ElementsAre("0"));
  EXPECT_EQ(reader.socket->native(), -1);
  EXPECT_FALSE(isOpen(descriptor));
}

TEST(RunLoopSocketTest, TheCallbackMayDestroyTheSocket) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  Reader reader(descriptor);
  reader.afterRead = [&] { reader.socket.reset(); };
  ASSERT_TRUE(reader.socket->addTo(loop));
  Sender().send(descriptor, 5);
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(reader.texts, ElementsAre("0"));
  EXPECT_FALSE(isOpen(descriptor));
}

TEST(RunLoopSocketTest, TheCallbackMayDestroyItInALaterReadAndMakeANewOne) {
  auto& loop = RunLoop::current();
  const int descriptor = receivingDescriptor();
  Reader reader(descriptor);
  reader.afterRead = [&] {
    if (reader.texts.size() == 3) {
      reader.socket.reset();
      reader.socket = reader.makeSocket(receivingDescriptor());
      EXPECT_TRUE(reader.socket->addTo(loop));
    }
  };
  ASSERT_TRUE(reader.socket->addTo(loop));
  Sender().send(descriptor, 5);
  loop.runOnce(Seconds(10));
  loop.runOnce(Seconds(0.1));
  EXPECT_THAT(reader.texts, ElementsAre("0", "1", "2"));
  Sender().send(reader.socket->native(), 1);
  loop.runOnce(Seconds(10));
  EXPECT_THAT(reader.texts, ElementsAre("0", "1", "2", "0"));
  EXPECT_THAT(reader.furtherReads, ElementsAre(false, true, true, false, true));
}

TEST(RunLoopSocketTest, IsAddedOnlyOnce) {
  auto& loop = RunLoop::current();
  Reader reader;
  EXPECT_TRUE(reader.socket->addTo(loop));
  EXPECT_FALSE(reader.socket->addTo(loop));
  Sender().send(reader.socket->native(), 1);
  loop.runOnce(Seconds(10));
  EXPECT_THAT(reader.texts, ElementsAre("0"));
}

TEST(RunLoopSocketTest, IsServedByTheLoopOfTheThreadThatAddedIt) {
  std::vector<std::string> texts;
  std::thread([&] {
    Reader reader;
    ASSERT_TRUE(reader.socket->addTo(RunLoop::current()));
    Sender().send(reader.socket->native(), 2);
    RunLoop::current().runOnce(Seconds(10));
    texts = reader.texts;
  }).join();
  EXPECT_THAT(texts, ElementsAre("0", "1"));
}

TEST(RunLoopSocketDeathTest, NeedsADescriptorAndACallback) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(RunLoopSocket(-1, [](RunLoopSocket& /*socket*/) { return false; }),
               "RunLoopSocket.*descriptor >= 0");
  EXPECT_DEATH(RunLoopSocket(receivingDescriptor(), nullptr), "RunLoopSocket.*callback != nullptr");
}

}  // namespace
}  // namespace ravelin::platform
