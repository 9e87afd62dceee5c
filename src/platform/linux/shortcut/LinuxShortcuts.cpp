#include "platform/linux/shortcut/LinuxShortcuts.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/linux/shortcut/DesktopEntry.h"

namespace ravelin::platform {

namespace {

/// Network file systems often have just the plain kind of renaming.
int renameWith(unsigned flag, int folder, const std::string& from, const std::string& to) {
  if (::renameat2(folder, from.c_str(), folder, to.c_str(), flag) == 0) {
    return 0;
  }
  return errno == EINVAL ? ENOSYS : errno;
}

}  // namespace

bool LinuxShortcuts::isShortcut(int folder, const std::string& name, FoundItem& item) const {
  if (!S_ISREG(item.status.st_mode)) {
    return false;
  }
  Descriptor& file = item.content;
  if (!file.isOpen()) {
    file = _access.openFound(folder, name, item);
  }
  std::array<char, DesktopEntry::MAGIC.size() + 1> begin{};
  const ssize_t size = file.isOpen() ? ::pread(file.number(), begin.data(), begin.size(), 0) : -1;
  return size > 0 && DesktopEntry::isShortcut({begin.data(), static_cast<std::size_t>(size)});
}

int LinuxShortcuts::mark(int /*folder*/, const std::string& /*name*/) const { return 0; }

int LinuxShortcuts::renameIfFree(int folder, const std::string& from, const std::string& to) const {
  return renameWith(RENAME_NOREPLACE, folder, from, to);
}

int LinuxShortcuts::exchange(int folder, const std::string& one, const std::string& other) const {
  return renameWith(RENAME_EXCHANGE, folder, one, other);
}

int LinuxShortcuts::remove(int folder, const std::string& name) const {
  return ::unlinkat(folder, name.c_str(), 0) == 0 ? 0 : errno;
}

std::optional<FileError> LinuxShortcuts::moveToTrash(const BeneathResolver::Place& place,
                                                     const FoundItem& item) {
  return _trash.take(place, item);
}

}  // namespace ravelin::platform
