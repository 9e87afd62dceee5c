#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "platform/SystemLog.h"

namespace ravelin::platform {

/// One program's connection to the system's log service, over the service's local socket. It is
/// made when there is something to send and made again when the service has been started anew.
/// Never waits: a record that the service does not take at once is lost. Any thread.
class SystemLogSocket {
 public:
  /// For the service at the path, which need not be there yet, and records marked with the ident
  /// and the facility. The names of facilities are those of syslog, in any case; a name that is
  /// none stands for "daemon".
  SystemLogSocket(std::string path, std::string ident, std::string_view facility);
  ~SystemLogSocket();
  SystemLogSocket(const SystemLogSocket&) = delete;
  SystemLogSocket& operator=(const SystemLogSocket&) = delete;

  /// Sends the text, which is data, as one record with the current local time; answers whether the
  /// service took it. Of a text that is too long for one record, the beginning is sent.
  bool send(SystemLog::Level level, std::string_view text);

 private:
  [[nodiscard]] std::string _record(SystemLog::Level level, std::string_view text) const;
  bool _connect();
  void _disconnect();
  int _deliver(const std::string& record);

  const std::string _path;
  const std::string _ident;
  const int _facility;

  std::mutex _mutex;       ///< guards all below
  int _descriptor = -1;    ///< -1 while there is no connection
  bool _isStream = false;  ///< records end with a NUL, for nothing else parts them
};

}  // namespace ravelin::platform
