#pragma once

#include <string>

#include "platform/linux/gvfs/VolumeSituation.h"

namespace ravelin::platform {

/// GVfs, asked through the helper program for volumes. Any thread.
class VolumesHelper {
 public:
  struct Answer {
    VolumeSituation situation = VolumeSituation::done;
    /// Where it has been mounted, or what has been said about the failure.
    std::string text;
  };

  /// Mounts the share with this URL, anonymously. What arrives after it has been given up, or after
  /// this process has ended, is not left mounted.
  static Answer mount(const std::string& url);

  /// Unmounts what is mounted at the path, unless somebody uses it.
  static Answer unmount(const std::string& mountPoint);
};

}  // namespace ravelin::platform
