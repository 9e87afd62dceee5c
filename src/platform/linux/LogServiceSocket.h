#pragma once

#include <cstdint>
#include <string>

#include "base/ThreadSafety.h"

namespace ravelin::platform {

/// One program's connection to a log service at a local socket, of datagrams or a stream. It is
/// made when there is something to send and made again when the service has been started anew.
/// Never waits. Any thread.
class LogServiceSocket {
 public:
  enum class Result : std::uint8_t {
    taken,    ///< the service has the record
    lost,     ///< the service is there, but has no room
    tooLong,  ///< no service could take a record of this length over such a socket
    absent    ///< there is no service
  };

  /// For the service at the path, which need not be there yet.
  explicit LogServiceSocket(std::string path);
  ~LogServiceSocket();
  LogServiceSocket(const LogServiceSocket&) = delete;
  LogServiceSocket& operator=(const LogServiceSocket&) = delete;

  /// Sends the bytes as one record.
  Result send(const std::string& record);

 private:
  bool _connect() REQUIRES(_mutex);
  void _disconnect() REQUIRES(_mutex);
  int _deliver(const std::string& record) REQUIRES(_mutex);

  const std::string _path;

  Mutex _mutex;
  /// -1 while there is no connection.
  int _descriptor GUARDED_BY(_mutex) = -1;
  /// Records end with a NUL, for nothing else parts them.
  bool _isStream GUARDED_BY(_mutex) = false;
};

}  // namespace ravelin::platform
