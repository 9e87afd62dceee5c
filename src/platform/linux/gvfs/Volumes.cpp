#include "platform/Volumes.h"

#include <string_view>
#include <utility>
#include <vector>

#include "base/PathComponents.h"
#include "platform/Service.h"
#include "platform/linux/gvfs/MountTable.h"
#include "platform/linux/gvfs/VolumeSituation.h"
#include "platform/linux/gvfs/VolumesHelper.h"
#include "platform/posix/VolumeReferences.h"

namespace ravelin::platform {

namespace {

constexpr std::string_view SCHEME = "smb://";

VolumeOutcome outcomeOf(VolumeSituation situation, const std::string& saying = "") {
  return {.status = -static_cast<VolumeStatus>(situation), .comment = commentOn(situation, saying)};
}

ServerVolumeMount notMounted(VolumeSituation situation, const std::string& saying = "") {
  VolumeOutcome outcome = outcomeOf(situation, saying);
  return {.status = outcome.status, .comment = std::move(outcome.comment), .reference = 0};
}

bool isMounted(const std::string& path) {
  const auto table = MountTable::read();
  return table && table->isGvfsMount(path);
}

/// GVfs knows mounts by name; the references are this process's own.
class LinuxVolumes final : public Volumes {
 public:
  ServerVolumeMount mountServerVolume(const std::string& url, const std::string& user,
                                      const std::string& password) override {
    // A password would show in the helper's arguments.
    if (!url.starts_with(SCHEME) || user.empty() || !password.empty()) {
      return notMounted(VolumeSituation::notGuest);
    }
    const auto answer =
        VolumesHelper::mount(std::string(SCHEME) + user + ":@" + url.substr(SCHEME.size()));
    if (answer.situation != VolumeSituation::done) {
      return notMounted(answer.situation, answer.text);
    }
    const auto table = MountTable::read();
    const std::int16_t reference = _references.give(answer.text, [&table](const std::string& path) {
      return !table || table->isGvfsMount(path);
    });
    if (reference == 0) {
      VolumesHelper::unmount(answer.text);
      return notMounted(VolumeSituation::noReferenceLeft);
    }
    return {.status = 0, .comment = commentOn(VolumeSituation::done), .reference = reference};
  }

  VolumeOutcome unmountVolume(std::int16_t reference) override {
    const Text path = pathOfVolume(reference);
    if (!path) {
      return outcomeOf(VolumeSituation::notMounted);
    }
    const auto answer = VolumesHelper::unmount(*path);
    return outcomeOf(answer.situation, answer.text);
  }

  std::int16_t referenceOfVolume(const std::string& path) override {
    const auto table = MountTable::read();
    const auto isMounted = [&table](const std::string& mountPoint) {
      return table && table->isGvfsMount(mountPoint);
    };
    return isMounted(path) ? _references.numberOf(path, isMounted) : std::int16_t{0};
  }

  Text pathOfVolume(std::int16_t reference) override {
    const Text path = _references.pathOf(reference);
    return path && isMounted(*path) ? path : std::nullopt;
  }

  std::vector<Volume> volumes() override {
    const auto table = MountTable::read();
    std::vector<Volume> found;
    for (const Mount& mount : table ? table->volumes() : std::vector<Mount>()) {
      // The last component of the root's path would be the separator itself.
      found.push_back({.name = mount.point == "/" ? "" : lastPathComponent(mount.point),
                       .rootPath = mount.point});
    }
    return found;
  }

  std::vector<MountedShare> mountedShares() override {
    const auto table = MountTable::read();
    return table ? table->shares() : std::vector<MountedShare>();
  }

 private:
  VolumeReferences _references;
};

}  // namespace

template <>
Volumes& native<Volumes>() {
  static auto& instance = *new LinuxVolumes;
  return instance;
}

}  // namespace ravelin::platform
