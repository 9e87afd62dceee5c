#include "platform/posix/FolderListing.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

int listFolder(int folder, std::vector<FolderEntry>& entries, std::size_t limit) {
  Descriptor own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
    if (name == "." || name == "..") {
      continue;
    }
    if (limit-- == 0) {
      return EOVERFLOW;
    }
    entries.push_back({.name = std::string(name),
                       .mayBeFolder = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN});
  }
}

}  // namespace ravelin::platform
