#include "platform/posix/ShortcutFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/posix/FileErrors.h"
#include "platform/posix/TemporaryFile.h"

namespace ravelin::platform {

namespace {

bool isFull(int error) { return error == ENOSPC || error == EDQUOT; }

}  // namespace

bool ShortcutFiles::exists(const Place& place) const {
  const int error = _access.find(place.folder.number(), place.name).error;
  return error == 0 || error == EXDEV;
}

bool ShortcutFiles::isShortcut(int folder, const std::string& name) const {
  return _lookAt(folder, name, _acceptedUnder(name)).kind == Kind::shortcut;
}

std::optional<FileError> ShortcutFiles::remove(const Place& place) {
  const Accept accept = _acceptedUnder(place.name);
  // Before the look: what another thread has just taken aside would not be seen.
  const LockGuard lock(_removal);
  Item item = _lookAt(place.folder.number(), place.name, accept);
  return item.kind == Kind::shortcut ? _removeShortcutLocked(place, std::move(item), accept)
                                     : item.error;
}

std::optional<FileError> ShortcutFiles::makeWay(const Place& place) {
  Item item = _lookAt(place.folder.number(), place.name);
  switch (item.kind) {
    case Kind::nothing:
      return std::nullopt;
    case Kind::shortcut:
      return _removeShortcut(place, std::move(item));
    case Kind::foreign:
      break;
  }
  return item.found.error == 0 ? _native.moveToTrash(place, item.found) : item.error;
}

std::optional<FileError> ShortcutFiles::store(const Place& place, std::string_view content) {
  const int folder = place.folder.number();
  TemporaryFile file(folder, content, TemporaryFile::Mode::exact);
  const int failure = file.error() != 0 ? file.error() : _native.mark(folder, file.name());
  if (failure != 0) {
    return fileError(failure);
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
    if (item.kind == Kind::nothing) {
      continue;
    }
    // In one step: at every instant there is either the old shortcut or the new one.
    const int refusal = _native.exchange(folder, file.name(), place.name);
    if (refusal == 0) {
      const Item replaced = _lookAt(folder, file.name());
      if (replaced.kind == Kind::foreign) {
        // The user's file came between the look and the exchange.
        _removeShortcut(place, Item());
        _putBack(folder, file.name(), place.name);
        file.release();
        return replaced.error;
      }
      if (_native.remove(folder, file.name()) == 0) {
        file.release();
      }
      return std::nullopt;
    }
    if (refusal != ENOSYS) {
      return fileError(refusal);
    }
    if (auto obstacle = _removeShortcut(place, Item())) {
      return obstacle;
    }
  }
  return fileError(EBUSY);
}

/// An empty file under the name of a new one is a shortcut whose content was still to come. Under
/// other names, and where it has been taken aside, it may be the user's.
ShortcutFiles::Accept ShortcutFiles::_acceptedUnder(const std::string& name) {
  return TemporaryFile::isFreshName(name, TemporaryFile::Purpose::content) ? Accept::remainsToo
                                                                           : Accept::shortcuts;
}

ShortcutFiles::Item ShortcutFiles::_lookAt(int folder, const std::string& name,
                                           Accept accept) const {
  return _judged(folder, name, _access.find(folder, name), accept);
}

/// The same, of what is likely to be the item that has been looked at before it got this name. Its
/// descriptors keep its number from being another one's.
ShortcutFiles::Item ShortcutFiles::_lookAgainAt(int folder, const std::string& name, Item item,
                                                Accept accept) const {
  struct stat status{};
  const bool isSame = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                      status.st_dev == item.found.status.st_dev &&
                      status.st_ino == item.found.status.st_ino;
  item.found.status = status;
  return isSame ? _judged(folder, name, std::move(item.found), accept)
                : _lookAt(folder, name, accept);
}

ShortcutFiles::Item ShortcutFiles::_judged(int folder, const std::string& name, FoundItem found,
                                           Accept accept) const {
  if (found.error != 0) {
    const int error = found.error;
    return {.kind = error == ENOENT ? Kind::nothing : Kind::foreign,
            .found = std::move(found),
            .error = fileError(error)};
  }
  // Content is written at once, or not at all.
  const bool isHalfMade =
      accept == Accept::remainsToo && S_ISREG(found.status.st_mode) && found.status.st_size == 0;
  if (isHalfMade || _native.isShortcut(folder, name, found)) {
    return {.kind = Kind::shortcut, .found = std::move(found), .error = {}};
  }
  const bool isFolder = S_ISDIR(found.status.st_mode);
  return {
      .kind = Kind::foreign,
      .found = std::move(found),
      .error = isFolder ? fileError(EISDIR) : FileError{"It is not a shortcut of Ravelin Disk"}};
}

/// Gives what has the name another one, which nobody else uses; 0 or the error number.
int ShortcutFiles::_takeAside(int folder, const std::string& name, std::string& taken) const {
  constexpr int ATTEMPTS = 100;
  int error = EEXIST;
  for (int attempt = 0; attempt < ATTEMPTS && error == EEXIST; ++attempt) {
    taken = TemporaryFile::freshName(TemporaryFile::Purpose::removal);
    error = _native.renameIfFree(folder, name, taken);
    if (error == ENOSYS && _access.find(folder, taken).error == 0) {
      error = EEXIST;
    } else if (error == ENOSYS) {
      error = ::renameat(folder, name.c_str(), folder, taken.c_str()) == 0 ? 0 : errno;
    }
  }
  return error;
}

/// Moves something that nobody else knows to a place where nothing is; 0 or the error number.
int ShortcutFiles::_moveIfFree(int folder, const std::string& from, const std::string& to) const {
  const int error = _native.renameIfFree(folder, from, to);
  if (error != ENOSYS) {
    return error;
  }
  if (::linkat(folder, from.c_str(), folder, to.c_str(), 0) == 0) {
    ::unlinkat(folder, from.c_str(), 0);
    return 0;
  }
  // Folders cannot have a second link, and some file systems have none at all.
  if (errno == EEXIST || _access.find(folder, to).error != ENOENT) {
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

std::optional<FileError> ShortcutFiles::_removeShortcut(const Place& place, Item item) {
  const LockGuard lock(_removal);
  return _removeShortcutLocked(place, std::move(item));
}

/// Nothing tells the system to remove a file only if it is a certain one. So the file is taken
/// aside, where nobody else finds it, looked at again, and only then removed. Should the process be
/// killed in between, a hidden file is left.
std::optional<FileError> ShortcutFiles::_removeShortcutLocked(const Place& place, Item item,
                                                              Accept accept) {
  const int folder = place.folder.number();
  std::string taken;
  if (const int refusal = _takeAside(folder, place.name, taken); refusal != 0) {
    const int error = isFull(refusal) ? _native.remove(folder, place.name) : refusal;
    return error == 0 ? std::nullopt : std::optional(fileError(error));
  }
  item = _lookAgainAt(folder, taken, std::move(item), accept);
  const int failure = item.kind == Kind::shortcut ? _native.remove(folder, taken) : 0;
  if (item.kind == Kind::shortcut && failure == 0) {
    return std::nullopt;
  }
  FileError error = item.kind == Kind::shortcut ? fileError(failure) : item.error;
  _putBack(folder, taken, place.name);
  return error;
}

}  // namespace ravelin::platform
