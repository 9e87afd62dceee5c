#include "platform/Volumes.h"

#include <string_view>
#include <vector>

#include "platform/PathComponents.h"
#include "platform/Service.h"
#include "platform/linux/MountTable.h"
#include "platform/linux/VolumeReferences.h"
#include "platform/linux/VolumeSituation.h"
#include "platform/linux/VolumesHelper.h"

namespace ravelin::platform {

namespace {

constexpr std::string_view SCHEME = "smb://";

VolumeStatus statusOf(VolumeSituation situation) { return -static_cast<VolumeStatus>(situation); }

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
      return {.status = statusOf(VolumeSituation::notGuest), .reference = 0};
    }
    const auto answer =
        VolumesHelper::mount(std::string(SCHEME) + user + ":@" + url.substr(SCHEME.size()));
    if (answer.situation != VolumeSituation::done) {
      return {.status = statusOf(answer.situation), .reference = 0};
    }
    const auto table = MountTable::read();
    const std::int16_t reference = _references.give(
        answer.mountPoint,
        [&table](const std::string& path) { return !table || table->isGvfsMount(path); });
    if (reference == 0) {
      VolumesHelper::unmount(answer.mountPoint);
      return {.status = statusOf(VolumeSituation::noReferenceLeft), .reference = 0};
    }
    return {.status = 0, .reference = reference};
  }

  VolumeStatus unmountVolume(std::int16_t reference) override {
    const Text path = pathOfVolume(reference);
    return statusOf(path ? VolumesHelper::unmount(*path) : VolumeSituation::notMounted);
  }

  Text pathOfVolume(std::int16_t reference) override {
    const Text path = _references.pathOf(reference);
    return path && isMounted(*path) ? path : std::nullopt;
  }

  std::optional<Volume> volumeAtIndex(std::size_t index) override {
    thread_local std::vector<Mount> volumes;
    if (index <= 1) {
      const auto table = MountTable::read();
      volumes = table ? table->volumes() : std::vector<Mount>();
    }
    if (index == 0 || index > volumes.size()) {
      volumes.clear();
      return std::nullopt;
    }
    const std::string& root = volumes[index - 1].point;
    // The root of all has the name that separates names.
    return Volume{.name = root == "/" ? "" : lastPathComponent(root), .rootPath = root};
  }

  std::string commentOnStatus(VolumeStatus status) override {
    switch (static_cast<VolumeSituation>(-status)) {
      case VolumeSituation::done:
        return "no error";
      case VolumeSituation::noServer:
        return "no SMB server answers at this address";
      case VolumeSituation::noSuchShare:
        return "the server has no such share";
      case VolumeSituation::notPermitted:
        return "the server does not permit guests to use this share";
      case VolumeSituation::alreadyMounted:
        return "the share is mounted already";
      case VolumeSituation::noGvfs:
        return "this session has no GVfs that can mount SMB shares";
      case VolumeSituation::noMountPoint:
        return "GVfs gives the share no place in the file system; its FUSE side is missing";
      case VolumeSituation::timedOut:
        return "it took too long";
      case VolumeSituation::notMounted:
        return "no such volume is mounted";
      case VolumeSituation::inUse:
        return "the volume is in use";
      case VolumeSituation::failed:
        return "GVfs could not do it";
      case VolumeSituation::noHelper:
        return "the program ravelin-disk-volumes-helper cannot be started";
      case VolumeSituation::notGuest:
        return "only SMB shares can be mounted, and only for users without a password";
      case VolumeSituation::noReferenceLeft:
        return "too many volumes are mounted";
    }
    return "unknown error";
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
