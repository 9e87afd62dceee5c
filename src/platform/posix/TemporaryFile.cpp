#include "platform/posix/TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

namespace {

constexpr mode_t FILE_MODE = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

std::string_view beginningOf(TemporaryFile::Purpose purpose) {
  return purpose == TemporaryFile::Purpose::content ? ".ravelin-disk-" : ".ravelin-disk-removal-";
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
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

}  // namespace

TemporaryFile::TemporaryFile(int folder, std::string_view content, Mode mode) : _folder(folder) {
  constexpr int ATTEMPTS = 100;
  Descriptor file;
  for (int attempt = 0; attempt < ATTEMPTS && !file.isOpen(); ++attempt) {
    _name = freshName(Purpose::content);
    file = Descriptor(::openat(folder, _name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, FILE_MODE));
    // The name is taken by a file that an earlier process with this number left: try the next.
    if (!file.isOpen() && errno != EEXIST) {
      break;
    }
  }
  if (!file.isOpen()) {
    _error = errno;
    release();
    return;
  }
  const bool done = (mode == Mode::lessUmask || ::fchmod(file.number(), FILE_MODE) == 0) &&
                    writeWholly(file.number(), content) && file.close();
  _error = done ? 0 : errno;
}

TemporaryFile::~TemporaryFile() {
  if (!_name.empty()) {
    ::unlinkat(_folder, _name.c_str(), 0);
  }
}

int TemporaryFile::replace(const std::string& name) {
  if (::renameat(_folder, _name.c_str(), _folder, name.c_str()) != 0) {
    return errno;
  }
  release();
  return 0;
}

std::string TemporaryFile::freshName(Purpose purpose) {
  static std::atomic<unsigned long> counter{0};
  return std::string(beginningOf(purpose))
      .append(std::to_string(::getpid()))
      .append("-")
      .append(std::to_string(counter++));
}

bool TemporaryFile::isFreshName(std::string_view name, Purpose purpose) {
  const std::string_view beginning = beginningOf(purpose);
  if (!name.starts_with(beginning)) {
    return false;
  }
  name.remove_prefix(beginning.size());
  const std::size_t hyphen = std::min(name.find('-'), name.size());
  return isNumber(name.substr(0, hyphen)) &&
         isNumber(name.substr(std::min(hyphen + 1, name.size())));
}

}  // namespace ravelin::platform
