// Takes the place of the platform's own in an agent that is otherwise the real one: on Linux the
// application services are always there.

#include "platform/ApplicationServices.h"

namespace ravelin::platform {

bool loadApplicationServices() { return false; }

}  // namespace ravelin::platform
