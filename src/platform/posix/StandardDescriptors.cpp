#include "platform/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace ravelin::platform {

void openStandardDescriptors() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(number, F_GETFD) == -1) {
      // The smallest free number is this one. Meant to be inherited, as these are.
      static_cast<void>(::open("/dev/null", O_RDWR));  // NOLINT(android-cloexec-open)
    }
  }
}

}  // namespace ravelin::platform
