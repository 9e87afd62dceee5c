#include "Shortcut.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>

#include "common/GioTypes.h"
#include "platform/linux/DesktopEntry.h"

namespace ravelin::open {

namespace {

using platform::DesktopEntry;

/// Far beyond every shortcut, whose label and address come from one datagram.
constexpr std::size_t MAXIMAL_SIZE = std::size_t{512} * 1024;

constexpr const char* URL_KEY = "URL";

Problem failure(std::string message) { return {FAILED, std::move(message)}; }

Problem foreign() { return failure("this is not a shortcut of Ravelin Disk"); }

Problem systemFailure() {
  return failure("it cannot be read: " + std::generic_category().message(errno));
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

  [[nodiscard]] std::variant<std::string, Problem> content() const {
    struct stat status{};
    if (_descriptor < 0 || ::fstat(_descriptor, &status) != 0) {
      return systemFailure();
    }
    if (!S_ISREG(status.st_mode)) {
      return foreign();
    }
    std::string text(DesktopEntry::MAGIC.size() + 1, '\0');
    if (const auto problem = _read(text, 0)) {
      return *problem;
    }
    if (text != std::string(DesktopEntry::MAGIC) + "\n") {
      return foreign();
    }
    const std::size_t magic = text.size();
    text.resize(MAXIMAL_SIZE + 1);
    if (const auto problem = _read(text, magic)) {
      return *problem;
    }
    if (text.size() > MAXIMAL_SIZE) {
      return foreign();
    }
    return text;
  }

 private:
  /// Fills the text from a place on, or shortens it to what there is.
  std::optional<Problem> _read(std::string& text, std::size_t begin) const {
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

String value(GKeyFile* file, const char* key) {
  return String(g_key_file_get_string(file, G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
}

}  // namespace

std::variant<std::string, Problem> urlOfShortcut(const std::string& path) {
  const auto read = File(path).content();
  if (const auto* const problem = std::get_if<Problem>(&read)) {
    return *problem;
  }
  const auto& text = std::get<std::string>(read);
  const KeyFile entry(g_key_file_new());
  if (g_key_file_load_from_data(entry.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ==
      FALSE) {
    return foreign();
  }
  const String type = value(entry.get(), G_KEY_FILE_DESKTOP_KEY_TYPE);
  const String url = value(entry.get(), URL_KEY);
  if (type == nullptr || std::string_view(type.get()) != G_KEY_FILE_DESKTOP_TYPE_LINK ||
      url == nullptr) {
    return foreign();
  }
  if (!std::string_view(url.get()).starts_with("smb://")) {
    return failure("it leads to something else than an SMB share");
  }
  return std::string(url.get());
}

}  // namespace ravelin::open
