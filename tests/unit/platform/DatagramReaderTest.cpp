#include "platform/DatagramReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/Udp.h"

namespace ravelin::platform {
namespace {

using test::UdpSocket;
using testing::ElementsAreArray;
using testing::IsEmpty;

/// No system refuses to send as much.
constexpr std::size_t LARGE = 9000;

struct Received {
  std::string text;
  std::int32_t port;  ///< the sender's

  bool operator==(const Received&) const = default;
};

class DatagramReaderTest : public testing::Test {
 protected:
  DatagramReaderTest() { EXPECT_EQ(::fcntl(_receiver.descriptor(), F_SETFL, O_NONBLOCK), 0); }

  void send(const UdpSocket& sender, const std::string& text) {
    ASSERT_TRUE(sender.send(text, _receiver.port()));
    _sent.push_back({.text = text, .port = sender.port()});
  }

  /// What one read gives.
  std::vector<Received> read() {
    std::vector<Received> found;
    for (const DatagramReader::Datagram& datagram : _reader.read(_receiver.descriptor())) {
      sockaddr_in sender{};
      EXPECT_EQ(datagram.sender.size(), sizeof sender);
      std::memcpy(&sender, datagram.sender.data(), sizeof sender);
      found.push_back(
          {.text = {reinterpret_cast<const char*>(datagram.data.data()), datagram.data.size()},
           .port = ntohs(sender.sin_port)});
    }
    return found;
  }

  /// Reads until all that has been sent since the last time is there, and expects just that.
  void expectSent() {
    std::vector<Received> found;
    while (found.size() < _sent.size()) {
      constexpr int PATIENCE_MS = 10000;
      pollfd readable{.fd = _receiver.descriptor(), .events = POLLIN, .revents = 0};
      ASSERT_EQ(::poll(&readable, 1, PATIENCE_MS), 1);
      const std::vector<Received> next = read();
      ASSERT_FALSE(next.empty());
      found.insert(found.end(), next.begin(), next.end());
    }
    EXPECT_THAT(found, ElementsAreArray(_sent));
    _sent.clear();
  }

  DatagramReader _reader;

 private:
  UdpSocket _receiver;
  std::vector<Received> _sent;
};

TEST_F(DatagramReaderTest, ReadsEveryDatagramInItsOrderHoweverManyComeTogether) {
  const std::array<UdpSocket, 2> senders;
  int number = 0;
  for (const int together : {1, 1, 2, 1, 20, 1, 8, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 9, 3, 1, 7, 40}) {
    for (int left = together; left > 0; --left, ++number) {
      send(senders[static_cast<std::size_t>(number) % 2], "datagram " + std::to_string(number));
    }
    expectSent();
  }
}

TEST_F(DatagramReaderTest, ReadsAnySizeAloneAndTogether) {
  const UdpSocket sender;
  const std::vector<std::string> texts = {"", "a", std::string(LARGE, 'b') + "end"};
  for (int round = 0; round < 4; ++round) {
    for (const std::string& text : texts) {
      send(sender, text);
      expectSent();
    }
    for (const std::string& text : texts) {
      send(sender, text);
    }
    expectSent();
  }
}

TEST_F(DatagramReaderTest, FindsNothingAsOftenAsNothingIsThere) {
  const UdpSocket sender;
  for (int round = 0; round < 3; ++round) {
    for (int time = 0; time < 10; ++time) {
      errno = 0;
      EXPECT_THAT(read(), IsEmpty());
      EXPECT_EQ(errno, EAGAIN);
      EXPECT_FALSE(_reader.wasFilled());
    }
    send(sender, "after a while");
    expectSent();
  }
}

}  // namespace
}  // namespace ravelin::platform
