#include "platform/linux/BeneathResolver.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace ravelin::platform {

namespace {

constexpr int FOLDER_FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;

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

Descriptor openByKernel(int start, const std::string& path) {
  open_how how{};
  how.flags = FOLDER_FLAGS;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  return Descriptor(
      static_cast<int>(::syscall(SYS_openat2, start, path.c_str(), &how, sizeof how)));
}

Descriptor openStepwise(Descriptor start, std::string_view path) {
  Descriptor folder = std::move(start);
  while (folder.isOpen() && !path.empty()) {
    const std::string component(takeComponent(path));
    if (!component.empty() && component != ".") {
      folder = Descriptor(::openat(folder.number(), component.c_str(), FOLDER_FLAGS | O_NOFOLLOW));
    }
  }
  return folder;
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
  place.folder = Descriptor(::open(beneath->c_str(), FOLDER_FLAGS));
  if (place.folder.isOpen() && !parents.empty()) {
    Descriptor found;
    if (_strategy == Strategy::kernel) {
      found = openByKernel(place.folder.number(), parents);
    }
    if (_strategy == Strategy::stepwise || (!found.isOpen() && lacksKernelWalk(errno))) {
      found = openStepwise(std::move(place.folder), parents);
    }
    place.folder = std::move(found);
  }
  return place.folder.isOpen() ? std::move(place) : failure(errno);
}

}  // namespace ravelin::platform
