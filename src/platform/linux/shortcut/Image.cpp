#include "platform/Image.h"

#include <sys/stat.h>

#include <map>
#include <tuple>
#include <utility>

#include "platform/Service.h"
#include "platform/linux/shortcut/ShortcutHelper.h"

namespace ravelin::platform {

namespace {

class FileImage final : public Image {
 public:
  explicit FileImage(std::string path) : _path(std::move(path)) {}
  [[nodiscard]] const std::string& path() const override { return _path; }

 private:
  std::string _path;
};

class LinuxImageReader final : public ImageReader {
 public:
  std::unique_ptr<Image> imageWithContentsOfFile(const std::string& path) override {
    struct stat status{};
    if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0 ||
        !S_ISREG(status.st_mode)) {
      return nullptr;
    }
    const Version version{status.st_dev,         status.st_ino,          status.st_size,
                          status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ctim.tv_sec,
                          status.st_ctim.tv_nsec};
    auto known = _verdicts.find(path);
    if (known == _verdicts.end() || known->second.version != version) {
      const auto isReadable = service<ShortcutHelper>().run({"check", path});
      if (!isReadable) {
        return nullptr;
      }
      known = _verdicts.insert_or_assign(path, Verdict{version, *isReadable}).first;
    }
    return known->second.isReadable ? std::make_unique<FileImage>(path) : nullptr;
  }

 private:
  using Version = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;
  struct Verdict {
    Version version;
    bool isReadable = false;
  };

  // By path, because every mount asks for the same few files. Only results of the helper are kept,
  // so that a picture is tried again after the helper could not be run.
  std::map<std::string, Verdict> _verdicts;
};

}  // namespace

template <>
ImageReader& native<ImageReader>() {
  static auto& instance = *new LinuxImageReader;
  return instance;
}

}  // namespace ravelin::platform
