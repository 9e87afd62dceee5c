#include "platform/DatagramSocket.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace ravelin::platform {

// Until the second call it could be inherited, but this process starts its children without it.
int openDatagramSocket() {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (descriptor >= 0) {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  }
  return descriptor;
}

}  // namespace ravelin::platform
