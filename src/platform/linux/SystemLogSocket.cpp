#include "platform/linux/SystemLogSocket.h"

#include <strings.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

namespace ravelin::platform {
namespace {

/// What is left of a record that is longer than a datagram may be.
constexpr std::size_t CUT_LENGTH = std::size_t{8} * 1024;

constexpr int DAEMON_FACILITY = 3;

/// Facilities under their numbers; 12 to 15 have no name.
constexpr std::array FACILITIES = {"kern",   "user",   "mail",   "daemon", "auth",     "syslog",
                                   "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                   "",       "",       "",       "",       "local0",   "local1",
                                   "local2", "local3", "local4", "local5", "local6",   "local7"};

/// English in every locale, as the service expects them.
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int facilityNumber(std::string_view name) {
  for (std::size_t number = 0; number < FACILITIES.size(); ++number) {
    const std::string_view known = FACILITIES.at(number);
    if (!known.empty() && known.size() == name.size() &&
        ::strncasecmp(FACILITIES.at(number), name.data(), name.size()) == 0) {
      return static_cast<int>(number);
    }
  }
  return DAEMON_FACILITY;
}

/// The beginning of the record, without half a character at its end.
std::string cut(const std::string& record) {
  std::size_t length = std::min(CUT_LENGTH, record.size());
  while (length < record.size() && length > CUT_LENGTH - 4 &&
         (static_cast<unsigned char>(record[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return record.substr(0, length);
}

}  // namespace

SystemLogSocket::SystemLogSocket(std::string path, std::string ident, std::string_view facility)
    : _path(std::move(path)), _ident(std::move(ident)), _facility(facilityNumber(facility)) {}

SystemLogSocket::~SystemLogSocket() { _disconnect(); }

bool SystemLogSocket::send(SystemLog::Level level, std::string_view text) {
  const std::string record = _record(level, text);
  const std::lock_guard lock(_mutex);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (_descriptor < 0 && !_connect()) {
      return false;
    }
    int error = _deliver(record);
    if (error == EMSGSIZE) {
      error = _deliver(cut(record));
    }
    if (error == 0 || error == EAGAIN || error == ENOBUFS) {
      return error == 0;
    }
    _disconnect();
  }
  return false;
}

std::string SystemLogSocket::_record(SystemLog::Level level, std::string_view text) const {
  const time_t now = ::time(nullptr);
  tm local{};
  ::localtime_r(&now, &local);
  const int priority = _facility * 8 + static_cast<int>(level);
  std::array<char, 64> head{};
  (void)std::snprintf(head.data(), head.size(), "<%d>%s %2d %02d:%02d:%02d ", priority,
                      MONTHS.at(static_cast<std::size_t>(local.tm_mon)), local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec);
  std::string record = head.data();
  record.append(_ident).append(": ").append(text);
  return record;
}

bool SystemLogSocket::_connect() {
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

void SystemLogSocket::_disconnect() {
  if (_descriptor >= 0) {
    ::close(_descriptor);
  }
  _descriptor = -1;
}

/// 0, or the reason why the record was not taken.
int SystemLogSocket::_deliver(const std::string& record) {
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
