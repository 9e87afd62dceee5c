#pragma once

#include <string>
#include <string_view>

#include "platform/SystemLog.h"
#include "platform/linux/LogServiceSocket.h"

namespace ravelin::platform {

/// One program's way to the journal, in the journal's own protocol: of what comes in any other way
/// it keeps no ident that has a blank in it. Never waits, which the journal's own library may do: a
/// record that the journal does not take at once is lost. Any thread.
class JournalSocket {
 public:
  using Result = LogServiceSocket::Result;

  /// For the journal at the path, which need not be there yet, and records marked with the ident,
  /// which has no line feed, and the facility, one of syslog's numbers.
  JournalSocket(std::string path, std::string ident, int facility);

  /// Sends the text, which is data, as the message of one record. A text of more than some 100 KiB
  /// is too long.
  Result send(SystemLog::Level level, std::string_view text);

 private:
  LogServiceSocket _socket;
  const std::string _ident;
  const int _facility;
};

}  // namespace ravelin::platform
