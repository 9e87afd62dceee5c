#include "platform/DatagramReader.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <span>
#include <string>

namespace ravelin::platform {
namespace {

/// Between sockets of this machine's own kind what has been sent is there at once, so that it is
/// known how many wait.
class LinuxDatagramReaderTest : public testing::Test {
 protected:
  LinuxDatagramReaderTest() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, _sockets.data()), 0); }
  ~LinuxDatagramReaderTest() override {
    for (const int socket : _sockets) {
      ::close(socket);
    }
  }

  void send(int count, const std::string& text = "x") {
    for (int number = 0; number < count; ++number) {
      ASSERT_EQ(::send(_sockets[0], text.data(), text.size(), MSG_DONTWAIT), std::ssize(text));
    }
  }

  std::size_t read() { return _reader.read(_sockets[1]).size(); }

  /// Reads so many datagrams and expects each to be this text.
  void expect(std::size_t count, const std::string& text) {
    while (count > 0) {
      const auto datagrams = _reader.read(_sockets[1]);
      ASSERT_GT(datagrams.size(), 0);
      ASSERT_LE(datagrams.size(), count);
      count -= datagrams.size();
      for (const DatagramReader::Datagram& datagram : datagrams) {
        EXPECT_TRUE(std::ranges::equal(datagram.data, std::as_bytes(std::span(text))));
      }
    }
  }

  DatagramReader _reader;

 private:
  std::array<int, 2> _sockets{-1, -1};
};

TEST_F(LinuxDatagramReaderTest, TakesSeveralAtOnceAndSaysThatThereAreProbablyMore) {
  send(10);
  const std::size_t first = read();
  EXPECT_GT(first, 1);
  EXPECT_TRUE(_reader.wasFilled());
  EXPECT_EQ(read(), 10 - first);
  EXPECT_FALSE(_reader.wasFilled());
}

TEST_F(LinuxDatagramReaderTest, TakesSeveralAtOnceAgainSoonAfterOneWasAlone) {
  send(1);
  EXPECT_EQ(read(), 1);
  EXPECT_FALSE(_reader.wasFilled());
  send(10);
  std::size_t most = 0;
  for (std::size_t left = 10; left > 0;) {
    const std::size_t taken = read();
    ASSERT_GT(taken, 0);
    left -= taken;
    most = taken > most ? taken : most;
  }
  EXPECT_GT(most, 1);
}

TEST_F(LinuxDatagramReaderTest, ReadsAsMuchAsTheLimitAndCutsOffTheRestAloneAndTogether) {
  std::string greatest(DatagramReader::DATAGRAM_LIMIT, 'x');
  greatest.back() = '!';
  for (const int together : {2, 1, 1}) {
    for (const std::string& text : {greatest, greatest + "?"}) {
      send(together, text);
      expect(static_cast<std::size_t>(together), greatest);
    }
  }
}

}  // namespace
}  // namespace ravelin::platform
