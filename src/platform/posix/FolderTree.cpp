#include "platform/posix/FolderTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {

namespace {

/// Deeper than any folder tree that is meant seriously; each level takes a descriptor.
constexpr int DEPTH_LIMIT = 64;

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

/// The names in the folder; 0 or the error number.
int listFolder(const Descriptor& folder, std::vector<std::string>& names) {
  Descriptor own(::openat(folder.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseFolder> opened(own.isOpen() ? ::fdopendir(own.number())
                                                              : nullptr);
  if (opened == nullptr) {
    return errno;
  }
  own.release();  // belongs to the listing now
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(opened.get());
    if (entry == nullptr) {
      return errno;
    }
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      names.emplace_back(name);
    }
  }
}

int removeItem(int folder, const std::string& name, int depth);

int emptyFolder(int folder, const std::string& name, int depth) {
  if (depth == 0) {
    return ELOOP;
  }
  const Descriptor inside = StepwiseAccess().enter(folder, name);
  if (!inside.isOpen()) {
    return errno;
  }
  std::vector<std::string> names;
  int error = listFolder(inside, names);
  for (auto item = names.begin(); error == 0 && item != names.end(); ++item) {
    error = removeItem(inside.number(), *item, depth - 1);
    // Gone already: some systems keep what belongs to a file in a second one, which they remove
    // along with it.
    if (error == ENOENT) {
      error = 0;
    }
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
