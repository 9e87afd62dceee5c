#include "platform/SystemPrograms.h"

#include <utility>
#include <vector>

namespace ravelin::platform {

namespace {

using Output = ChildProcesses::Output;

ChildResult run(const char* path, const std::vector<std::string>& arguments, Output output) {
  return service<ChildProcesses>().run(path, arguments, output);
}

class MacSystemPrograms final : public SystemPrograms {
 public:
  MountListing mountTable() override {
    return {.text = std::move(run("/sbin/mount", {}, Output::collected).output), .caseless = {}};
  }

  ChildResult mountGuestShare(const std::string& server, const std::string& share,
                              const std::string& folder) override {
    return run("/sbin/mount", {"-t", "smbfs", "//guest:@" + server + "/" + share, folder},
               Output::collected);
  }

  ChildResult umount(const std::string& path) override {
    return run("/sbin/umount", {path}, Output::inherited);
  }

  // Both complain where their callers do not mind.
  ChildResult mkdir(const std::string& path) override {
    return run("/bin/mkdir", {path}, Output::collected);
  }
  ChildResult rmdir(const std::string& path) override {
    return run("/bin/rmdir", {path}, Output::collected);
  }
};

}  // namespace

template <>
SystemPrograms& native<SystemPrograms>() {
  static auto& instance = *new MacSystemPrograms;
  return instance;
}

}  // namespace ravelin::platform
