#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace ravelin::platform {

/// Opens descriptors 0 to 2 on the null device where the process was started without them, so that
/// none of its own files and sockets becomes what it reads and writes as standard input, output or
/// error. At the very start of `main`. Does nothing where there is no null device.
inline void openStandardDescriptors() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(number, F_GETFD) == -1) {
      // The smallest free number is this one. Meant to be inherited, as these are.
      static_cast<void>(::open("/dev/null", O_RDWR));  // NOLINT(android-cloexec-open)
    }
  }
}

}  // namespace ravelin::platform
