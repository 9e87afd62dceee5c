#include "platform/ApplicationServices.h"

namespace ravelin::platform {

// Programs without an application object are the ordinary case here.
bool loadApplicationServices() { return true; }

}  // namespace ravelin::platform
