#include "platform/MulticastSocket.h"

#include <netinet/in.h>
#include <sys/socket.h>

namespace ravelin::platform {

void hearOnlyJoinedGroups(int descriptor) {
  const int off = 0;
  ::setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
}

}  // namespace ravelin::platform
