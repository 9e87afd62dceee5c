#include "platform/DatagramSocket.h"

#include <sys/socket.h>

namespace ravelin::platform {

int openDatagramSocket() { return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

}  // namespace ravelin::platform
