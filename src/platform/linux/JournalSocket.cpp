#include "platform/linux/JournalSocket.h"

#include <unistd.h>

#include <cstdint>
#include <utility>

namespace ravelin::platform {
namespace {

/// A field whose value has no line feed.
void appendField(std::string& record, std::string_view name, std::string_view value) {
  record.append(name).append("=").append(value).append("\n");
}

/// A field with any value: its length stands before it, the lowest byte first.
void appendData(std::string& record, std::string_view name, std::string_view value) {
  record.append(name).append("\n");
  std::uint64_t length = value.size();
  for (int byte = 0; byte < 8; ++byte) {
    record += static_cast<char>(length & 0xFFU);
    length >>= 8U;
  }
  record.append(value).append("\n");
}

}  // namespace

JournalSocket::JournalSocket(std::string path, std::string ident, int facility)
    : _socket(std::move(path)), _ident(std::move(ident)), _facility(facility) {}

JournalSocket::Result JournalSocket::send(SystemLog::Level level, std::string_view text) {
  std::string record;
  appendField(record, "SYSLOG_IDENTIFIER", _ident);
  appendField(record, "PRIORITY", std::to_string(static_cast<int>(level)));
  appendField(record, "SYSLOG_FACILITY", std::to_string(_facility));
  appendField(record, "SYSLOG_PID", std::to_string(::getpid()));
  appendData(record, "MESSAGE", text);
  return _socket.send(record);
}

}  // namespace ravelin::platform
