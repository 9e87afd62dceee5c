#include "platform/linux/SystemLogSocket.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <utility>

#include "base/Utf8.h"

namespace ravelin::platform {
namespace {

/// What is left of a record that is longer than a datagram may be.
constexpr std::size_t CUT_LENGTH = std::size_t{8} * 1024;

/// English in every locale, as the service expects them.
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

SystemLogSocket::SystemLogSocket(std::string path, std::string ident, int facility)
    : _socket(std::move(path)), _ident(std::move(ident)), _facility(facility) {}

bool SystemLogSocket::send(SystemLog::Level level, std::string_view text) {
  using Result = LogServiceSocket::Result;
  const std::string record = _record(level, text);
  Result result = _socket.send(record);
  if (result == Result::tooLong) {
    result = _socket.send(std::string(beginningOf(record, CUT_LENGTH)));
  }
  return result == Result::taken;
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

}  // namespace ravelin::platform
