#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Service.h"
#include "platform/Volumes.h"

namespace ravelin::test {

/// Takes the place of the system's volumes for its lifetime: notes the calls and returns what
/// the test chooses. At first nothing is mounted.
class StandInVolumes final : public platform::Volumes {
 public:
  platform::ServerVolumeMount nextMount{.status = 0, .comment = "comment on 0", .reference = 0};
  platform::VolumeStatus nextUnmount = 0;
  std::map<std::int16_t, std::string> paths;
  std::vector<platform::Volume> mounted;

  /// The calls so far, which are then forgotten.
  std::vector<std::string> takeCalls() { return std::exchange(_calls, {}); }

  platform::ServerVolumeMount mountServerVolume(const std::string& url, const std::string& user,
                                                const std::string& password) override {
    _calls.push_back("mount [" + url + "] [" + user + "] [" + password + "]");
    return nextMount;
  }
  platform::VolumeOutcome unmountVolume(std::int16_t reference) override {
    _calls.push_back("unmount " + std::to_string(reference));
    return {.status = nextUnmount, .comment = "comment on " + std::to_string(nextUnmount)};
  }
  std::int16_t referenceOfVolume(const std::string& path) override {
    const auto found =
        std::ranges::find(paths, path, [](const auto& entry) { return entry.second; });
    return found == paths.end() ? std::int16_t{0} : found->first;
  }
  Text pathOfVolume(std::int16_t reference) override {
    const auto found = paths.find(reference);
    return found == paths.end() ? std::nullopt : Text(found->second);
  }
  std::vector<platform::Volume> volumes() override { return mounted; }
  std::vector<platform::MountedShare> mountedShares() override { return {}; }

 private:
  std::vector<std::string> _calls;
  const platform::Substitute<platform::Volumes> _inForce{*this};
};

}  // namespace ravelin::test
