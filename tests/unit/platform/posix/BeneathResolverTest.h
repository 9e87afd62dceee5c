#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>

#include "platform/posix/BeneathResolver.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {

/// One way from folder to folder, under the name that its tests have.
struct NamedAccess {
  std::string name;
  std::shared_ptr<const FolderAccess> access;
};

inline void PrintTo(const NamedAccess& access, std::ostream* out) { *out << access.name; }

inline std::string nameOfAccess(const testing::TestParamInfo<NamedAccess>& info) {
  return info.param.name;
}

/// A tree of folders and links for the ways that this is instantiated with, here and in the tests
/// of a system's own ways.
class BeneathResolverTest : public testing::TestWithParam<NamedAccess> {
 protected:
  BeneathResolverTest() {
    std::filesystem::create_directories(_folder + "/one/two");
    std::filesystem::create_directory_symlink("one", _folder + "/within");
    std::filesystem::create_directory_symlink("/", _folder + "/root");
    std::filesystem::create_directory_symlink("..", _folder + "/one/up");
    std::filesystem::create_directory_symlink(_folder, _temporary.path() + "/link");
  }

  [[nodiscard]] BeneathResolver::Place find(const std::string& below) const {
    return _resolver.resolve(_folder + "/" + below, _folder);
  }

  [[nodiscard]] int errorFor(const std::string& below) const { return find(below).error; }

  /// Whether the place is this name in this very folder.
  static bool isAt(const BeneathResolver::Place& place, const std::string& folder,
                   const std::string& name) {
    struct stat found{};
    struct stat wanted{};
    return place.error == 0 && place.name == name && ::fstat(place.folder.number(), &found) == 0 &&
           ::stat(folder.c_str(), &wanted) == 0 && found.st_dev == wanted.st_dev &&
           found.st_ino == wanted.st_ino;
  }

  const FolderAccess& _access = *GetParam().access;
  const BeneathResolver _resolver{_access};
  const test::TemporaryDirectory _temporary;
  const std::string _folder = _temporary.path() + "/folder";
};

}  // namespace ravelin::platform
