#include "platform/posix/FileReading.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "platform/posix/FileErrors.h"

namespace ravelin::platform {

namespace {

/// Reads to the end of the file.
FileContents readWholly(int file, std::size_t expected, std::size_t limit) {
  constexpr std::size_t MARGIN = 512;
  std::string content;
  std::size_t length = 0;
  while (length <= limit) {
    // Some more than there should be, so that the end shows without another read.
    content.resize(std::max(expected, length * 2) + MARGIN);
    const std::size_t wanted = content.size() - length;
    const ssize_t count = ::read(file, content.data() + length, wanted);
    if (count < 0 && errno != EINTR) {
      return {.text = std::nullopt, .error = fileError(errno)};
    }
    length += count < 0 ? 0 : static_cast<std::size_t>(count);
    // Some file systems announce an empty file and have content nevertheless.
    const bool asExpected = expected > 0 && length == expected;
    if (count == 0 || asExpected) {
      content.resize(length);
      return {.text = std::move(content), .error = std::nullopt};
    }
  }
  return {.text = std::nullopt, .error = fileError(EFBIG)};
}

}  // namespace

FileContents noContents(int error) {
  const bool isAbsent = error == ENOENT || error == ENOTDIR;
  return {.text = std::nullopt, .error = isAbsent ? std::nullopt : std::optional(fileError(error))};
}

FileContents noFile(const struct stat& status) {
  return {.text = std::nullopt,
          .error = S_ISDIR(status.st_mode) ? fileError(EISDIR) : FileError{"It is not a file"}};
}

FileContents contentsOf(const Descriptor& file, std::size_t limit) {
  struct stat status{};
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    return noContents(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return noFile(status);
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  return size > limit ? noContents(EFBIG) : readWholly(file.number(), size, limit);
}

}  // namespace ravelin::platform
