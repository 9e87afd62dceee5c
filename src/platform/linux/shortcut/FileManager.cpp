#include "platform/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "platform/Service.h"
#include "platform/linux/BeneathResolver.h"
#include "platform/linux/OpenedFile.h"
#include "platform/linux/shortcut/ShortcutFiles.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileErrors.h"
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
Place placeOf(const std::string& path) {
  Place place;
  const std::size_t slash = path.rfind('/');
  place.name = path.substr(slash + 1);
  if (place.name.empty() || place.name == "." || place.name == "..") {
    place.error = EISDIR;
    return place;
  }
  const std::string folder = path.substr(0, slash + 1);
  place.folder = Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  place.error = place.folder.isOpen() ? 0 : errno;
  return place;
}

/// Reads to the end of the file; null when that fails or there is too much.
Text readWholly(int file, std::size_t expected, std::size_t limit) {
  constexpr std::size_t MARGIN = 512;
  std::string content;
  std::size_t length = 0;
  while (length <= limit) {
    // Some more than there should be, so that the end shows without another read.
    content.resize(std::max(expected, length * 2) + MARGIN);
    const std::size_t wanted = content.size() - length;
    const ssize_t count = ::read(file, content.data() + length, wanted);
    if (count < 0 && errno != EINTR) {
      return std::nullopt;
    }
    length += count < 0 ? 0 : static_cast<std::size_t>(count);
    // Some file systems announce an empty file and have content nevertheless.
    const bool asExpected = expected > 0 && length == expected;
    if (count == 0 || asExpected) {
      content.resize(length);
      return content;
    }
  }
  return std::nullopt;
}

Text contentOf(const Descriptor& file, std::size_t limit) {
  struct stat status{};
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  return size > limit ? std::nullopt : readWholly(file.number(), size, limit);
}

class LinuxFileManager final : public FileManager {
 public:
  bool createDirectoryAtPath(const std::string& path) override {
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

  bool fileExistsAtPath(const std::string& path) override {
    struct stat status{};
    return !namesNothing(path) && ::stat(path.c_str(), &status) == 0;
  }

  Text contentsAtPath(const std::string& path, std::size_t limit) override {
    return namesNothing(path) ? std::nullopt
                              : contentOf(Descriptor(::open(path.c_str(), READING)), limit);
  }

  std::optional<FileError> writeAtomically(const std::string& path,
                                           std::string_view content) override {
    if (namesNothing(path)) {
      return fileError(EINVAL);
    }
    const Place place = placeOf(path);
    if (place.error != 0) {
      return fileError(place.error);
    }
    TemporaryFile file(place.folder.number(), content, TemporaryFile::Mode::lessUmask);
    const int error = file.error() != 0 ? file.error() : file.replace(place.name);
    return error != 0 ? std::optional(fileError(error)) : std::nullopt;
  }

  bool fileExistsAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error == 0 && _shortcuts.exists(place);
  }

  Text contentsAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    if (place.error != 0) {
      return std::nullopt;
    }
    const Descriptor item = _resolver.open(place.folder.number(), place.name);
    struct stat status{};
    // What is no file is not even opened: that may have effects of its own.
    const bool isFile =
        item.isOpen() && ::fstat(item.number(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? contentOf(openForReading(item), CONTENT_LIMIT) : std::nullopt;
  }

  std::optional<FileError> makeWayAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error != 0 ? fileError(place.error) : _shortcuts.makeWay(place);
  }

  std::optional<FileError> removeShortcutAtPath(const std::string& path,
                                                const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error != 0 ? fileError(place.error) : _shortcuts.remove(place);
  }

  std::optional<FileError> writeShortcutAtPath(const std::string& path, const Text& beneath,
                                               std::string_view content) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error != 0 ? fileError(place.error) : _shortcuts.store(place, content);
  }

 private:
  const BeneathResolver _resolver;
  ShortcutFiles _shortcuts{_resolver};
};

}  // namespace

template <>
FileManager& native<FileManager>() {
  static auto& instance = *new LinuxFileManager;
  return instance;
}

}  // namespace ravelin::platform
