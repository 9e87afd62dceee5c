#include "platform/posix/BeneathResolver.h"

#include <cerrno>
#include <utility>

namespace ravelin::platform {

namespace {

BeneathResolver::Place failure(int error) { return {.folder = {}, .name = {}, .error = error}; }

/// Takes the first component off the path.
std::string_view takeComponent(std::string_view& path) {
  const std::size_t end = path.find('/');
  const std::string_view component = path.substr(0, end);
  path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  return component;
}

/// No step leads upwards, not even to where the path has been before.
bool holdsParentComponent(std::string_view path) {
  while (!path.empty()) {
    if (takeComponent(path) == "..") {
      return true;
    }
  }
  return false;
}

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
  place.folder = _openFolders(_access.openFolder(*beneath), parents);
  return place.folder.isOpen() ? std::move(place) : failure(errno);
}

Descriptor BeneathResolver::_openFolders(Descriptor start, std::string_view path) const {
  Descriptor folder = std::move(start);
  while (folder.isOpen() && !path.empty()) {
    const std::string component(takeComponent(path));
    if (!component.empty() && component != ".") {
      folder = _access.enter(folder.number(), component);
    }
  }
  return folder;
}

}  // namespace ravelin::platform
