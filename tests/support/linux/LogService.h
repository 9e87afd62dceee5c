#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace ravelin::test {

/// A log service that listens at the path until it is destroyed, and then takes the path with it.
class LogService {
 public:
  LogService(std::string path, int type)
      : _path(std::move(path)), _socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, _path.data(), _path.size());
    EXPECT_EQ(::bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0)
        << std::strerror(errno);
    if (type == SOCK_STREAM) {
      EXPECT_EQ(::listen(_socket, 5), 0);
    }
  }
  ~LogService() {
    ::close(_socket);
    ::unlink(_path.c_str());
  }
  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  [[nodiscard]] int accept() const { return ::accept4(_socket, nullptr, nullptr, SOCK_CLOEXEC); }

  /// The next datagram, if one waits.
  [[nodiscard]] std::optional<std::string> next() const { return receive(_socket); }

  static std::optional<std::string> receive(int socket) {
    pollfd ready{socket, POLLIN, 0};
    if (::poll(&ready, 1, 0) <= 0) {
      return std::nullopt;
    }
    int length = 0;
    EXPECT_EQ(::ioctl(socket, FIONREAD, &length), 0);
    std::string buffer(static_cast<std::size_t>(length), '\0');
    EXPECT_EQ(::recv(socket, buffer.data(), buffer.size(), 0), length);
    return buffer;
  }

 private:
  const std::string _path;
  const int _socket;
};

}  // namespace ravelin::test
