#pragma once

#include <CoreServices/CoreServices.h>

#include "platform/Volumes.h"

namespace ravelin::platform {

/// Volumes by the system's file system services, which are deprecated but keep a number for each
/// volume themselves. Any thread.
class FileSystemVolumes final : public Volumes {
 public:
  /// Whether this system still has them.
  [[nodiscard]] static bool areHere();

  ServerVolumeMount mountServerVolume(const std::string& url, const std::string& user,
                                      const std::string& password) override;
  VolumeOutcome unmountVolume(std::int16_t reference) override;
  std::int16_t referenceOfVolume(const std::string& path) override;
  Text pathOfVolume(std::int16_t reference) override;
  std::vector<Volume> volumes() override;
  std::vector<MountedShare> mountedShares() override;
};

}  // namespace ravelin::platform
