#include "Shortcut.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <system_error>

#include "ShortcutEntry.h"
#include "platform/linux/shortcut/DesktopEntry.h"

namespace ravelin::open {

namespace {

using platform::DesktopEntry;

/// Far beyond every shortcut, whose label and address come from one datagram.
constexpr std::size_t MAXIMAL_SIZE = std::size_t{512} * 1024;

Failure systemFailure() {
  return {FAILED, "it cannot be read: " + std::generic_category().message(errno)};
}

class File {
 public:
  /// Neither a pipe without a writer nor a device is waited for.
  explicit File(const std::string& path)
      : _descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  ~File() {
    if (_descriptor >= 0) {
      ::close(_descriptor);
    }
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  /// What follows the first line.
  [[nodiscard]] std::variant<std::string, Failure> entry() const {
    struct stat status{};
    if (_descriptor < 0 || ::fstat(_descriptor, &status) != 0) {
      return systemFailure();
    }
    if (!S_ISREG(status.st_mode)) {
      return foreign();
    }
    std::string line(DesktopEntry::MAGIC.size() + 1, '\0');
    if (const auto failure = _read(line)) {
      return *failure;
    }
    if (line != std::string(DesktopEntry::MAGIC) + "\n") {
      return foreign();
    }
    std::string entry(MAXIMAL_SIZE - line.size() + 1, '\0');
    if (const auto failure = _read(entry)) {
      return *failure;
    }
    if (line.size() + entry.size() > MAXIMAL_SIZE) {
      return foreign();
    }
    return entry;
  }

 private:
  /// Fills the text with what comes next, or shortens it to what there is.
  std::optional<Failure> _read(std::string& text) const {
    std::size_t begin = 0;
    while (begin < text.size()) {
      const ssize_t count = ::read(_descriptor, text.data() + begin, text.size() - begin);
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count < 0) {
        return systemFailure();
      }
      if (count == 0) {
        break;
      }
      begin += static_cast<std::size_t>(count);
    }
    text.resize(begin);
    return std::nullopt;
  }

  int _descriptor;
};

}  // namespace

std::variant<std::string, Failure> urlOfShortcut(const std::string& path) {
  const auto read = File(path).entry();
  if (const auto* const failure = std::get_if<Failure>(&read)) {
    return *failure;
  }
  return urlInEntry(std::get<std::string>(read));
}

}  // namespace ravelin::open
