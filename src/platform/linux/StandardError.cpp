#include "platform/linux/StandardError.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/posix/Descriptor.h"
#include "platform/posix/StandardError.h"

namespace ravelin::platform {

namespace {

ssize_t writeWithoutWaiting(std::string_view text) {
  // A pipe may be asked not to wait, write by write, by newer kernels.
  const iovec part{const_cast<char*>(text.data()), text.size()};
  const ssize_t written = ::pwritev2(STDERR_FILENO, &part, 1, -1, RWF_NOWAIT);
  if (written >= 0 || errno == EAGAIN || errno == EPIPE || errno == EINTR) {
    return written;
  }
  // An open file of our own, for the mode of the shared one is not ours to change.
  const Descriptor own(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return own.isOpen() ? ::write(own.number(), text.data(), text.size())
                      : writeToStandardErrorIfReady(text);
}

}  // namespace

void writeToStandardError(std::string line) {
  static auto& writer = *new StandardErrorWriter(writeWithoutWaiting);
  writer.write(std::move(line));
}

}  // namespace ravelin::platform
