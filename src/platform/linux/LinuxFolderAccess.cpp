#include "platform/linux/LinuxFolderAccess.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/Text.h"
#include "platform/posix/FileReading.h"

namespace ravelin::platform {

namespace {

/// Neither follows a link nor has anything mounted on demand.
constexpr int STEP_FLAGS = O_PATH | O_NOFOLLOW | O_CLOEXEC;

Descriptor openByKernel(int folder, const std::string& name) {
  open_how how{};
  how.flags = STEP_FLAGS;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  return Descriptor(
      static_cast<int>(::syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how)));
}

/// The number of the mount to which the descriptor belongs, without asking the mount itself.
Text mountOf(int descriptor) {
  constexpr std::size_t LIMIT = 65536;
  constexpr std::string_view KEY = "\nmnt_id:";
  const std::string path = "/proc/self/fdinfo/" + std::to_string(descriptor);
  const Text text = contentsOf(Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), LIMIT).text;
  const std::size_t found = text ? text->find(KEY) : std::string::npos;
  return found == std::string::npos
             ? std::nullopt
             : Text(text->substr(found, text->find('\n', found + KEY.size()) - found));
}

Descriptor openChecked(int folder, const std::string& name) {
  Descriptor found(::openat(folder, name.c_str(), STEP_FLAGS));
  if (!found.isOpen()) {
    return found;
  }
  const Text mount = mountOf(folder);
  if (mount && mount == mountOf(found.number())) {
    return found;
  }
  found.close();
  errno = EXDEV;
  return found;
}

/// Whether the kernel is too old for the call, or a sandbox withholds it.
bool lacksKernelWalk(int error) { return error == ENOSYS || error == EPERM; }

}  // namespace

Descriptor LinuxFolderAccess::openFolder(const std::string& path) const {
  return Descriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor LinuxFolderAccess::enter(int folder, const std::string& name) const {
  Descriptor found = _hold(folder, name);
  struct stat status{};
  if (found.isOpen() && (::fstat(found.number(), &status) != 0 || !S_ISDIR(status.st_mode))) {
    found.close();
    errno = ENOTDIR;
  }
  return found;
}

FoundItem LinuxFolderAccess::find(int folder, const std::string& name) const {
  FoundItem item;
  item.descriptor = _hold(folder, name);
  if (!item.descriptor.isOpen()) {
    item.error = errno;
  } else if (::fstat(item.descriptor.number(), &item.status) != 0) {
    item.status = {};
  }
  return item;
}

Descriptor LinuxFolderAccess::openFound(int /*folder*/, const std::string& /*name*/,
                                        const FoundItem& item) const {
  const std::string path = "/proc/self/fd/" + std::to_string(item.descriptor.number());
  return Descriptor(::open(path.c_str(), READING));
}

/// Opens what has the name in the folder without opening it for reading.
Descriptor LinuxFolderAccess::_hold(int folder, const std::string& name) const {
  if (_strategy == Strategy::kernel) {
    Descriptor found = openByKernel(folder, name);
    if (found.isOpen() || !lacksKernelWalk(errno)) {
      return found;
    }
  }
  return openChecked(folder, name);
}

}  // namespace ravelin::platform
