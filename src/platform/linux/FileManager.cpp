#include "platform/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include "platform/Service.h"
#include "platform/linux/BeneathResolver.h"
#include "platform/linux/Descriptor.h"

namespace ravelin::platform {

namespace {

/// What is larger is none of the agent's files, and not worth the memory.
constexpr std::size_t CONTENT_LIMIT = std::size_t{16} * 1024 * 1024;

constexpr mode_t FILE_MODE = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

enum class Mode { exact, lessUmask };

using Place = BeneathResolver::Place;

std::optional<FileError> failure(int error) {
  return FileError{std::generic_category().message(error)};
}

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

bool writeWholly(int file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(file, content.data(), content.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return true;
}

/// A new file under a name that nobody else uses; the name goes into `name`.
Descriptor createTemporary(int folder, std::string& name) {
  static std::atomic<unsigned long> counter{0};
  constexpr int ATTEMPTS = 100;
  Descriptor file;
  for (int attempt = 0; attempt < ATTEMPTS && !file.isOpen(); ++attempt) {
    name = ".ravelin-disk-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    file = Descriptor(::openat(folder, name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, FILE_MODE));
    // Left behind by an earlier process of the same number: the next name.
    if (!file.isOpen() && errno != EEXIST) {
      break;
    }
  }
  return file;
}

std::optional<FileError> replace(const Place& place, std::string_view content, Mode mode) {
  std::string temporary;
  Descriptor file = createTemporary(place.folder.number(), temporary);
  if (!file.isOpen()) {
    return failure(errno);
  }
  const bool done = (mode == Mode::lessUmask || ::fchmod(file.number(), FILE_MODE) == 0) &&
                    writeWholly(file.number(), content) && file.close() &&
                    ::renameat(place.folder.number(), temporary.c_str(), place.folder.number(),
                               place.name.c_str()) == 0;
  if (done) {
    return std::nullopt;
  }
  const int error = errno;
  ::unlinkat(place.folder.number(), temporary.c_str(), 0);
  return failure(error);
}

/// Reads to the end of the file; null when that fails or there is too much.
Text readWholly(int file, std::size_t expected) {
  constexpr std::size_t MARGIN = 512;
  std::string content;
  std::size_t length = 0;
  while (length <= CONTENT_LIMIT) {
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

// Without O_NONBLOCK a named pipe would be waited for.
constexpr int READING = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

Text contentsAt(int folder, const std::string& name, int flags) {
  const Descriptor file(::openat(folder, name.c_str(), flags));
  struct stat status{};
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  return size > CONTENT_LIMIT ? std::nullopt : readWholly(file.number(), size);
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

  Text contentsAtPath(const std::string& path) override {
    return namesNothing(path) ? std::nullopt : contentsAt(AT_FDCWD, path, READING);
  }

  std::optional<FileError> writeAtomically(const std::string& path,
                                           std::string_view content) override {
    if (namesNothing(path)) {
      return failure(EINVAL);
    }
    const Place place = placeOf(path);
    return place.error != 0 ? failure(place.error) : replace(place, content, Mode::lessUmask);
  }

  bool fileExistsAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    struct stat status{};
    return place.error == 0 &&
           ::fstatat(place.folder.number(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  }

  Text contentsAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error != 0 ? std::nullopt
                            : contentsAt(place.folder.number(), place.name, READING | O_NOFOLLOW);
  }

  std::optional<FileError> removeItemAtPath(const std::string& path, const Text& beneath) override {
    const Place place = _resolver.resolve(path, beneath);
    if (place.error != 0) {
      return failure(place.error);
    }
    const bool done = ::unlinkat(place.folder.number(), place.name.c_str(), 0) == 0;
    return done ? std::nullopt : failure(errno);
  }

  std::optional<FileError> writeAtomically(const std::string& path, const Text& beneath,
                                           std::string_view content) override {
    const Place place = _resolver.resolve(path, beneath);
    return place.error != 0 ? failure(place.error) : replace(place, content, Mode::exact);
  }

 private:
  const BeneathResolver _resolver;
};

}  // namespace

template <>
FileManager& native<FileManager>() {
  static auto& instance = *new LinuxFileManager;
  return instance;
}

}  // namespace ravelin::platform
