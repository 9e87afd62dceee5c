#include "platform/posix/FolderTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/posix/FolderListing.h"
#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {

namespace {

/// Deeper than any folder tree that is meant seriously; each level takes a descriptor.
constexpr int DEPTH_LIMIT = 64;

int removeItem(int folder, const std::string& name, int depth);

int emptyFolder(int folder, const std::string& name, int depth) {
  if (depth == 0) {
    return ELOOP;
  }
  const Descriptor inside = StepwiseAccess().enter(folder, name);
  if (!inside.isOpen()) {
    return errno;
  }
  std::vector<FolderEntry> entries;
  int error = listFolder(inside.number(), entries);
  for (auto entry = entries.begin(); error == 0 && entry != entries.end(); ++entry) {
    error = removeItem(inside.number(), entry->name, depth - 1);
  }
  return error;
}

int removeItem(int folder, const std::string& name, int depth) {
  struct stat status{};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno;
  }
  const bool isFolder = S_ISDIR(status.st_mode);
  if (const int error = isFolder ? emptyFolder(folder, name, depth) : 0; error != 0) {
    return error;
  }
  return ::unlinkat(folder, name.c_str(), isFolder ? AT_REMOVEDIR : 0) == 0 ? 0 : errno;
}

}  // namespace

int removeTree(int folder, const std::string& name) {
  return removeItem(folder, name, DEPTH_LIMIT);
}

}  // namespace ravelin::platform
