#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace ravelin::test {

/// A folder of a test's own, gone with this object.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : _path(std::filesystem::temp_directory_path() / "ravelin-disk-XXXXXX") {
    if (::mkdtemp(_path.data()) == nullptr) {
      throw std::runtime_error("no temporary directory at " + _path);
    }
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace ravelin::test
