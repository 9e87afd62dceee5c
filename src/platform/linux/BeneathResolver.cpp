#include "platform/linux/BeneathResolver.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <utility>

namespace ravelin::platform {

namespace {

/// Neither follows a link nor has anything mounted on demand.
constexpr int STEP_FLAGS = O_PATH | O_NOFOLLOW | O_CLOEXEC;

BeneathResolver::Place failure(int error) { return {.folder = {}, .name = {}, .error = error}; }

/// Takes the first component off the path.
std::string_view takeComponent(std::string_view& path) {
  const std::size_t end = path.find('/');
  const std::string_view component = path.substr(0, end);
  path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  return component;
}

/// The kernel lets ".." pass as long as it does not lead out; here it is refused altogether.
bool holdsParentComponent(std::string_view path) {
  while (!path.empty()) {
    if (takeComponent(path) == "..") {
      return true;
    }
  }
  return false;
}

Descriptor openByKernel(int folder, const std::string& name) {
  open_how how{};
  how.flags = STEP_FLAGS;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  return Descriptor(
      static_cast<int>(::syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how)));
}

/// The number of the mount to which the descriptor belongs, without asking the mount itself.
Text mountOf(int descriptor) {
  std::ifstream file("/proc/self/fdinfo/" + std::to_string(descriptor));
  for (std::string word; file >> word;) {
    if (word == "mnt_id:" && file >> word) {
      return word;
    }
  }
  return std::nullopt;
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

BeneathResolver::Place BeneathResolver::resolve(const std::string& path,
                                                const Text& beneath) const {
  if (!beneath) {
    return failure(ENOENT);
  }
  if (path.find('\0') != std::string::npos || beneath->find('\0') != std::string::npos) {
    return failure(EINVAL);
  }
  if (!beneath->starts_with('/') || !path.starts_with(*beneath + "/")) {
    return failure(EPERM);
  }
  std::string below = path.substr(beneath->size());
  below.erase(0, below.find_first_not_of('/'));
  const std::size_t slash = below.rfind('/');
  const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  Place place{.folder = {}, .name = below.substr(nameStart), .error = 0};
  const std::string parents = below.substr(0, nameStart);
  if (place.name.empty() || place.name == "." || place.name == ".." ||
      holdsParentComponent(parents)) {
    return failure(EPERM);
  }
  place.folder =
      _openFolders(Descriptor(::open(beneath->c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), parents);
  return place.folder.isOpen() ? std::move(place) : failure(errno);
}

Descriptor BeneathResolver::open(int folder, const std::string& name) const {
  if (_strategy == Strategy::kernel) {
    Descriptor found = openByKernel(folder, name);
    if (found.isOpen() || !lacksKernelWalk(errno)) {
      return found;
    }
  }
  return openChecked(folder, name);
}

Descriptor BeneathResolver::_openFolders(Descriptor start, std::string_view path) const {
  Descriptor folder = std::move(start);
  while (folder.isOpen() && !path.empty()) {
    const std::string component(takeComponent(path));
    if (!component.empty() && component != ".") {
      folder = open(folder.number(), component);
    }
    struct stat status{};
    if (folder.isOpen() && (::fstat(folder.number(), &status) != 0 || !S_ISDIR(status.st_mode))) {
      folder.close();
      errno = ENOTDIR;
    }
  }
  return folder;
}

}  // namespace ravelin::platform
