#include "platform/linux/shortcut/ShortcutFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "platform/linux/OpenedFile.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/posix/FileErrors.h"
#include "platform/posix/TemporaryFile.h"

namespace ravelin::platform {

namespace {

bool beginsAsShortcut(const Descriptor& item) {
  const Descriptor file = openForReading(item);
  std::array<char, DesktopEntry::MAGIC.size() + 1> begin{};
  const ssize_t size = file.isOpen() ? ::pread(file.number(), begin.data(), begin.size(), 0) : -1;
  return size > 0 && DesktopEntry::isShortcut({begin.data(), static_cast<std::size_t>(size)});
}

/// Whether the file system has no such kind of renaming, as network file systems often do.
bool lacksRenaming(int error) { return error == EINVAL || error == ENOSYS; }

bool isFull(int error) { return error == ENOSPC || error == EDQUOT; }

}  // namespace

bool ShortcutFiles::exists(const Place& place) const {
  return _resolver.open(place.folder.number(), place.name).isOpen() || errno == EXDEV;
}

std::optional<FileError> ShortcutFiles::remove(const Place& place) {
  // Before the look: what another thread has just taken aside would not be seen.
  const LockGuard lock(_removal);
  const Item item = _lookAt(place.folder.number(), place.name);
  return item.kind == Kind::shortcut ? _removeShortcutLocked(place) : item.error;
}

std::optional<FileError> ShortcutFiles::makeWay(const Place& place) {
  const Item item = _lookAt(place.folder.number(), place.name);
  switch (item.kind) {
    case Kind::nothing:
      return std::nullopt;
    case Kind::shortcut:
      return _removeShortcut(place);
    case Kind::foreign:
      break;
  }
  return item.descriptor.isOpen() ? _trash.take(_resolver, place, item.descriptor) : item.error;
}

std::optional<FileError> ShortcutFiles::store(const Place& place, std::string_view content) {
  const int folder = place.folder.number();
  TemporaryFile file(folder, content, TemporaryFile::Mode::exact);
  if (file.error() != 0) {
    return fileError(file.error());
  }
  constexpr int ATTEMPTS = 10;
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    const int error = _moveIfFree(folder, file.name(), place.name);
    if (error == 0) {
      file.release();
      return std::nullopt;
    }
    if (error != EEXIST) {
      return fileError(error);
    }
    const Item item = _lookAt(folder, place.name);
    if (item.kind == Kind::foreign) {
      return item.error;
    }
    // In one step, so that whoever looks sees the one shortcut or the other.
    if (item.kind == Kind::shortcut && ::renameat2(folder, file.name().c_str(), folder,
                                                   place.name.c_str(), RENAME_EXCHANGE) == 0) {
      const Item replaced = _lookAt(folder, file.name());
      if (replaced.kind != Kind::foreign) {
        return std::nullopt;
      }
      // It came in this very moment.
      _removeShortcut(place);
      _putBack(folder, file.name(), place.name);
      file.release();
      return replaced.error;
    }
    if (item.kind == Kind::shortcut) {
      if (!lacksRenaming(errno)) {
        return fileError(errno);
      }
      if (auto failure = _removeShortcut(place)) {
        return failure;
      }
    }
  }
  return fileError(EBUSY);
}

ShortcutFiles::Item ShortcutFiles::_lookAt(int folder, const std::string& name) const {
  Descriptor descriptor = _resolver.open(folder, name);
  if (!descriptor.isOpen()) {
    return {.kind = errno == ENOENT ? Kind::nothing : Kind::foreign,
            .descriptor = {},
            .error = fileError(errno)};
  }
  struct stat status{};
  const bool isKnown = ::fstat(descriptor.number(), &status) == 0;
  if (isKnown && S_ISREG(status.st_mode) && beginsAsShortcut(descriptor)) {
    return {.kind = Kind::shortcut, .descriptor = std::move(descriptor), .error = {}};
  }
  return {.kind = Kind::foreign,
          .descriptor = std::move(descriptor),
          .error = isKnown && S_ISDIR(status.st_mode)
                       ? fileError(EISDIR)
                       : FileError{"It is not a shortcut of Ravelin Disk"}};
}

/// Moves something that nobody else knows to a place where nothing is; 0 or the error number.
int ShortcutFiles::_moveIfFree(int folder, const std::string& from, const std::string& to) const {
  if (::renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (!lacksRenaming(errno)) {
    return errno;
  }
  if (::linkat(folder, from.c_str(), folder, to.c_str(), 0) == 0) {
    ::unlinkat(folder, from.c_str(), 0);
    return 0;
  }
  // Folders cannot have a second link, and some file systems have none at all.
  if (errno == EEXIST || _resolver.open(folder, to).isOpen() || errno != ENOENT) {
    return EEXIST;
  }
  return ::renameat(folder, from.c_str(), folder, to.c_str()) == 0 ? 0 : errno;
}

/// Gives the user's thing its name back, or the next best one where that is taken.
void ShortcutFiles::_putBack(int folder, const std::string& from, const std::string& to) const {
  constexpr int ATTEMPTS = 100;
  int error = _moveIfFree(folder, from, to);
  for (int number = 1; error == EEXIST && number < ATTEMPTS; ++number) {
    error = _moveIfFree(folder, from, to + " (" + std::to_string(number) + ")");
  }
}

std::optional<FileError> ShortcutFiles::_removeShortcut(const Place& place) {
  const LockGuard lock(_removal);
  return _removeShortcutLocked(place);
}

/// Nothing tells the system to remove a file only if it is a certain one. So the file is taken
/// aside, where nobody else finds it, looked at, and only then removed. Should the process be
/// killed in between, a hidden file is left.
std::optional<FileError> ShortcutFiles::_removeShortcutLocked(const Place& place) {
  const int folder = place.folder.number();
  std::string taken;
  do {
    taken = TemporaryFile::freshName();
  } while (_resolver.open(folder, taken).isOpen());
  if (::renameat(folder, place.name.c_str(), folder, taken.c_str()) != 0) {
    const bool done = isFull(errno) && ::unlinkat(folder, place.name.c_str(), 0) == 0;
    return done ? std::nullopt : std::optional(fileError(errno));
  }
  const Item item = _lookAt(folder, taken);
  if (item.kind == Kind::shortcut && ::unlinkat(folder, taken.c_str(), 0) == 0) {
    return std::nullopt;
  }
  FileError error = item.kind == Kind::shortcut ? fileError(errno) : item.error;
  _putBack(folder, taken, place.name);
  return error;
}

}  // namespace ravelin::platform
