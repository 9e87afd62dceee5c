#pragma once

#include <string>
#include <string_view>

#include "platform/SystemLog.h"
#include "platform/linux/LogServiceSocket.h"

namespace ravelin::platform {

/// One program's way to the system's log service, over the service's local socket. Never waits: a
/// record that the service does not take at once is lost. Any thread.
class SystemLogSocket {
 public:
  /// For the service at the path, which need not be there yet, and records marked with the ident
  /// and the facility, one of syslog's numbers.
  SystemLogSocket(std::string path, std::string ident, int facility);

  /// Sends the text, which is data, as one record with the current local time; returns whether the
  /// service took it. Of a text that is too long for one record, the beginning is sent.
  bool send(SystemLog::Level level, std::string_view text);

 private:
  [[nodiscard]] std::string _record(SystemLog::Level level, std::string_view text) const;

  LogServiceSocket _socket;
  const std::string _ident;
  const int _facility;
};

}  // namespace ravelin::platform
