#include "platform/posix/PosixFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/posix/Descriptor.h"
#include "platform/posix/FileErrors.h"
#include "platform/posix/FileReading.h"
#include "platform/posix/ShortcutSearch.h"
#include "platform/posix/TemporaryFile.h"

namespace ravelin::platform {

namespace {

using Place = BeneathResolver::Place;

bool namesNothing(const std::string& path) {
  return !path.starts_with('/') || path.find('\0') != std::string::npos;
}

bool isDirectory(const std::string& path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The place of a path that may lead anywhere.
Place placeOf(const FolderAccess& access, const std::string& path) {
  Place place;
  const std::size_t slash = path.rfind('/');
  place.name = path.substr(slash + 1);
  if (place.name.empty() || place.name == "." || place.name == "..") {
    place.error = EISDIR;
    return place;
  }
  place.folder = access.openFolder(path.substr(0, slash + 1));
  place.error = place.folder.isOpen() ? 0 : errno;
  return place;
}

}  // namespace

bool PosixFileManager::createDirectoryAtPath(const std::string& path) {
  if (namesNothing(path)) {
    return false;
  }
  if (isDirectory(path)) {
    return true;
  }
  constexpr mode_t FOLDER_MODE = S_IRWXU | S_IRWXG | S_IRWXO;
  // Which of them failed and why does not matter: what counts is what is there in the end.
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), FOLDER_MODE);
  }
  return ::mkdir(path.c_str(), FOLDER_MODE) == 0 || isDirectory(path);
}

bool PosixFileManager::fileExistsAtPath(const std::string& path) {
  struct stat status{};
  return !namesNothing(path) && ::stat(path.c_str(), &status) == 0;
}

FileContents PosixFileManager::contentsAtPath(const std::string& path, std::size_t limit) {
  return namesNothing(path) ? noContents(EINVAL)
                            : contentsOf(Descriptor(::open(path.c_str(), READING)), limit);
}

std::optional<FileError> PosixFileManager::writeAtomically(const std::string& path,
                                                           std::string_view content) {
  if (namesNothing(path)) {
    return fileError(EINVAL);
  }
  const Place place = placeOf(_access, path);
  if (place.error != 0) {
    return fileError(place.error);
  }
  TemporaryFile file(place.folder.number(), content, TemporaryFile::Mode::lessUmask);
  const int error = file.error() != 0 ? file.error() : file.replace(place.name);
  return error != 0 ? std::optional(fileError(error)) : std::nullopt;
}

bool PosixFileManager::itemExistsAtPath(const std::string& path, const Text& beneath) {
  const Place place = _resolver.resolve(path, beneath);
  return place.error == 0 && _shortcuts.exists(place);
}

FileContents PosixFileManager::contentsOfItemAtPath(const std::string& path, const Text& beneath) {
  const Place place = _resolver.resolve(path, beneath);
  if (place.error != 0) {
    return noContents(place.error);
  }
  const int folder = place.folder.number();
  const FoundItem item = _access.find(folder, place.name);
  if (item.error != 0) {
    return noContents(item.error);
  }
  // What is no file is not even opened: that may have effects of its own.
  return S_ISREG(item.status.st_mode)
             ? contentsOf(_access.openFound(folder, place.name, item), CONTENT_LIMIT)
             : noFile(item.status);
}

std::optional<FileError> PosixFileManager::makeWayAtPath(const std::string& path,
                                                         const Text& beneath) {
  const Place place = _resolver.resolve(path, beneath);
  return place.error != 0 ? fileError(place.error) : _shortcuts.makeWay(place);
}

std::optional<FileError> PosixFileManager::removeShortcutAtPath(const std::string& path,
                                                                const Text& beneath) {
  const Place place = _resolver.resolve(path, beneath);
  return place.error != 0 ? fileError(place.error) : _shortcuts.remove(place);
}

ShortcutListing PosixFileManager::shortcutsBeneath(const std::string& folder) {
  return ShortcutSearch(_access, _shortcuts).beneath(folder);
}

std::optional<FileError> PosixFileManager::writeShortcutAtPath(const std::string& path,
                                                               const Text& beneath,
                                                               std::string_view content) {
  const Place place = _resolver.resolve(path, beneath);
  return place.error != 0 ? fileError(place.error) : _shortcuts.store(place, content);
}

}  // namespace ravelin::platform
