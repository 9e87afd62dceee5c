#pragma once

#include <string>

#include "platform/linux/VolumeSituation.h"

namespace ravelin::platform {

/// GVfs, asked through the helper program for volumes. Any thread.
class VolumesHelper {
 public:
  struct Answer {
    VolumeSituation situation = VolumeSituation::done;
    std::string mountPoint;  ///< of what has been mounted
  };

  /// Mounts the share with this URL, anonymously.
  static Answer mount(const std::string& url);

  /// Unmounts what is mounted at the path.
  static VolumeSituation unmount(const std::string& mountPoint);
};

}  // namespace ravelin::platform
