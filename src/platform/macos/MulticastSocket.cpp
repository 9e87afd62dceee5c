#include "platform/MulticastSocket.h"

namespace ravelin::platform {

// A socket of this system hears no other groups.
void hearOnlyJoinedGroups(int /*descriptor*/) {}

}  // namespace ravelin::platform
