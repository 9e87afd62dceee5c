#include "platform/posix/StepwiseAccess.h"

#include <fcntl.h>

#include <cerrno>

namespace ravelin::platform {

namespace {

constexpr int FOLDER_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// No descriptor; the error number goes to errno.
Descriptor none(int error) {
  errno = error;
  return {};
}

}  // namespace

Descriptor StepwiseAccess::openFolder(const std::string& path) const {
  return Descriptor(::open(path.c_str(), FOLDER_FLAGS));
}

Descriptor StepwiseAccess::enter(int folder, const std::string& name) const {
  struct stat above{};
  struct stat below{};
  Descriptor found(::openat(folder, name.c_str(), FOLDER_FLAGS | O_NOFOLLOW));
  if (!found.isOpen() || ::fstat(folder, &above) != 0 || ::fstat(found.number(), &below) != 0) {
    return none(errno);
  }
  return below.st_dev == above.st_dev ? std::move(found) : none(EXDEV);
}

FoundItem StepwiseAccess::find(int folder, const std::string& name) const {
  FoundItem item;
  struct stat above{};
  if (::fstatat(folder, name.c_str(), &item.status, AT_SYMLINK_NOFOLLOW) != 0 ||
      (S_ISDIR(item.status.st_mode) && ::fstat(folder, &above) != 0)) {
    item.error = errno;
  } else if (S_ISDIR(item.status.st_mode) && item.status.st_dev != above.st_dev) {
    item.error = EXDEV;
  }
  return item;
}

Descriptor StepwiseAccess::openFound(int folder, const std::string& name,
                                     const FoundItem& item) const {
  struct stat status{};
  Descriptor file(::openat(folder, name.c_str(), READING | O_NOFOLLOW));
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    return none(errno);
  }
  const bool isSame = status.st_dev == item.status.st_dev && status.st_ino == item.status.st_ino;
  return isSame ? std::move(file) : none(ENOENT);
}

}  // namespace ravelin::platform
