#pragma once

#include "platform/Volumes.h"
#include "platform/posix/VolumeReferences.h"

namespace ravelin::platform {

/// Volumes by NetFS and the kernel, for a system without the file system services: the numbers of
/// the volumes are this process's own. Any thread.
class NetworkVolumes final : public Volumes {
 public:
  ServerVolumeMount mountServerVolume(const std::string& url, const std::string& user,
                                      const std::string& password) override;
  VolumeOutcome unmountVolume(std::int16_t reference) override;
  std::int16_t referenceOfVolume(const std::string& path) override;
  Text pathOfVolume(std::int16_t reference) override;
  std::vector<Volume> volumes() override;
  std::vector<MountedShare> mountedShares() override;

 private:
  VolumeReferences _references;
};

}  // namespace ravelin::platform
