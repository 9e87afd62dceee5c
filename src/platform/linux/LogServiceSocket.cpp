#include "platform/linux/LogServiceSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace ravelin::platform {

LogServiceSocket::LogServiceSocket(std::string path) : _path(std::move(path)) {}

LogServiceSocket::~LogServiceSocket() { _disconnect(); }

LogServiceSocket::Result LogServiceSocket::send(const std::string& record) {
  const LockGuard lock(_mutex);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (_descriptor < 0 && !_connect()) {
      return Result::absent;
    }
    switch (_deliver(record)) {
      case 0:
        return Result::taken;
      case EAGAIN:
      case ENOBUFS:
        return Result::lost;
      case EMSGSIZE:
        return Result::tooLong;
      default:
        _disconnect();
    }
  }
  return Result::absent;
}

bool LogServiceSocket::_connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (_path.size() >= sizeof(address.sun_path)) {
    return false;
  }
  std::memcpy(address.sun_path, _path.data(), _path.size());
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    _descriptor = ::socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (_descriptor < 0) {
      return false;
    }
    _isStream = type == SOCK_STREAM;
    if (::connect(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      return true;
    }
    const int error = errno;
    _disconnect();
    if (error != EPROTOTYPE) {
      break;
    }
  }
  return false;
}

void LogServiceSocket::_disconnect() {
  if (_descriptor >= 0) {
    ::close(_descriptor);
  }
  _descriptor = -1;
}

/// 0, or the reason why the record was not taken.
int LogServiceSocket::_deliver(const std::string& record) {
  const std::size_t length = record.size() + (_isStream ? 1 : 0);
  const ssize_t sent = ::send(_descriptor, record.c_str(), length, MSG_NOSIGNAL);
  if (sent < 0) {
    return errno;
  }
  if (static_cast<std::size_t>(sent) < length) {
    // Half a record in a stream would become one with the next.
    _disconnect();
    return EAGAIN;
  }
  return 0;
}

}  // namespace ravelin::platform
