#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "base/Text.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::test {

/// Sets an environment variable for its lifetime.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const std::string& value) : _name(name) {
    if (const char* before = std::getenv(name); before != nullptr) {
      _before = before;
    }
    ::setenv(name, value.c_str(), 1);
  }
  ~EnvironmentVariable() {
    if (_before) {
      ::setenv(_name, _before->c_str(), 1);
    } else {
      ::unsetenv(_name);
    }
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  const char* _name;
  Text _before;
};

/// A user's home with a desktop folder, and a machine-wide data folder, for the lifetime of this
/// object. Create it before threads that look folders up, destroy it after them.
class TemporaryHome {
 public:
  TemporaryHome() {
    std::filesystem::create_directories(desktop());
    std::filesystem::create_directories(machineWide());
    std::filesystem::create_directories(path() + "/system");
    std::filesystem::create_directory_symlink("/usr/share/mime", path() + "/system/mime");
  }

  [[nodiscard]] const std::string& path() const { return _directory.path(); }
  [[nodiscard]] std::string desktop() const { return path() + "/Desktop"; }
  [[nodiscard]] std::string machineWide() const { return path() + "/machine/share"; }

  /// Where what the user has thrown away lies.
  [[nodiscard]] std::string trash() const { return path() + "/data/Trash/files"; }

  /// The agent's support folders; nothing creates them here.
  [[nodiscard]] std::string userSupport() const { return path() + "/data/RavelinDisk"; }
  [[nodiscard]] std::string machineWideSupport() const { return machineWide() + "/RavelinDisk"; }

 private:
  const TemporaryDirectory _directory;
  const EnvironmentVariable _home{"HOME", path()};
  const EnvironmentVariable _data{"XDG_DATA_HOME", path() + "/data"};
  const EnvironmentVariable _configuration{"XDG_CONFIG_HOME", path() + "/config"};
  /// What libraries need of the system's own folder stays behind it: the kinds of files. The rest
  /// of it may have an agent's configuration.
  const EnvironmentVariable _dataFolders{"XDG_DATA_DIRS", machineWide() + ":" + path() + "/system"};
  /// So that what a death test's process leaves behind goes with this folder.
  const EnvironmentVariable _temporary{"TMPDIR", path()};
};

}  // namespace ravelin::test
