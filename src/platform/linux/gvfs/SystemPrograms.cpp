#include "platform/SystemPrograms.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/PercentEscaping.h"
#include "platform/Service.h"
#include "platform/linux/StandardError.h"
#include "platform/linux/gvfs/MountTable.h"
#include "platform/linux/gvfs/VolumeSituation.h"
#include "platform/linux/gvfs/VolumesHelper.h"

namespace ravelin::platform {

namespace {

using Output = ChildProcesses::Output;

/// Where the program is; when it is nowhere, where it should be.
std::string located(const std::string& name) {
  static const std::array<std::string, 4> FOLDERS{"/usr/bin/", "/bin/", "/usr/sbin/", "/sbin/"};
  const auto* const folder = std::ranges::find_if(FOLDERS, [&name](const std::string& candidate) {
    return ::access((candidate + name).c_str(), X_OK) == 0;
  });
  return (folder == FOLDERS.end() ? FOLDERS.front() : *folder) + name;
}

ChildResult run(const std::string& name, const std::vector<std::string>& arguments, Output output) {
  return service<ChildProcesses>().run(located(name), arguments, output);
}

MountTable readTable() {
  auto table = MountTable::read();
  if (!table) {
    throw LaunchException("cannot read the mount table");
  }
  return *std::move(table);
}

class LinuxSystemPrograms final : public SystemPrograms {
 public:
  MountListing mountTable() override { return readTable().listing(); }

  MountListing mountTableAbout(std::string_view sought) override {
    return readTable().listingAbout(sought);
  }

  // The kernel's SMB file system, whose mounting program takes the name of the share as it is.
  ChildResult mountGuestShare(const std::string& server, const std::string& share,
                              const std::string& folder) override {
    const std::string source =
        std::string("//").append(server).append("/").append(removingPercentEscapes(share));
    return run("mount", {"-t", "cifs", "-o", "guest", source, folder}, Output::collected);
  }

  ChildResult umount(const std::string& path) override {
    const auto table = MountTable::read();
    const std::string point = table ? table->pointListedAs(path) : path;
    if (!table || !table->isGvfsMount(point)) {
      return run("umount", {point}, Output::inherited);
    }
    const auto answer = VolumesHelper::unmount(point);
    if (answer.situation != VolumeSituation::done) {
      // The program would write to standard error, too.
      writeToStandardError("umount: " + point + ": " + commentOn(answer.situation, answer.text) +
                           ".\n");
    }
    ChildResult result;
    result.terminationStatus = static_cast<int>(answer.situation);
    return result;
  }

  // The callers ignore these failures, so what the programs write about them is dropped.
  ChildResult mkdir(const std::string& path) override {
    return run("mkdir", {path}, Output::collected);
  }
  ChildResult rmdir(const std::string& path) override {
    return run("rmdir", {path}, Output::collected);
  }
};

}  // namespace

template <>
SystemPrograms& native<SystemPrograms>() {
  static auto& instance = *new LinuxSystemPrograms;
  return instance;
}

}  // namespace ravelin::platform
