#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

namespace ravelin::test {

/// Puts a descriptor in place of standard error for the lifetime of this object.
class StandardErrorReplacement {
 public:
  explicit StandardErrorReplacement(int descriptor)
      : _replaced(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    ::dup2(descriptor, STDERR_FILENO);
  }
  ~StandardErrorReplacement() {
    ::dup2(_replaced, STDERR_FILENO);
    ::close(_replaced);
  }
  StandardErrorReplacement(const StandardErrorReplacement&) = delete;
  StandardErrorReplacement& operator=(const StandardErrorReplacement&) = delete;

 private:
  int _replaced;
};

/// The two ends of a pipe or socket pair, closed with this object.
class Channel {
 public:
  static Channel pipe() {
    Channel channel;
    EXPECT_EQ(::pipe(channel._ends.data()), 0);
    channel._keepFromChildren();
    return channel;
  }
  static Channel sockets(int type) {
    Channel channel;
    EXPECT_EQ(::socketpair(AF_UNIX, type, 0, channel._ends.data()), 0);
    channel._keepFromChildren();
    return channel;
  }
  ~Channel() {
    closeReader();
    closeWriter();
  }
  Channel(Channel&& other) noexcept : _ends(other._ends) { other._ends = {-1, -1}; }
  Channel& operator=(Channel&&) = delete;
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  [[nodiscard]] int reader() const { return _ends[0]; }
  [[nodiscard]] int writer() const { return _ends[1]; }
  void closeReader() { _close(_ends[0]); }
  void closeWriter() { _close(_ends[1]); }

  /// What waits to be read now.
  [[nodiscard]] std::string read() const {
    std::string text;
    std::array<char, 65536> buffer{};
    pollfd ready{reader(), POLLIN, 0};
    while (::poll(&ready, 1, 0) > 0) {
      const ssize_t length = ::read(reader(), buffer.data(), buffer.size());
      if (length <= 0) {
        break;
      }
      text.append(buffer.data(), static_cast<std::size_t>(length));
    }
    return text;
  }

 private:
  Channel() = default;

  void _keepFromChildren() const {
    for (const int end : _ends) {
      EXPECT_EQ(::fcntl(end, F_SETFD, FD_CLOEXEC), 0);
    }
  }

  static void _close(int& descriptor) {
    if (descriptor >= 0) {
      ::close(descriptor);
    }
    descriptor = -1;
  }

  std::array<int, 2> _ends{-1, -1};
};

}  // namespace ravelin::test
