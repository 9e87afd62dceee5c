#pragma once

#include <string>

#include "base/Text.h"
#include "disk/Disk.h"

namespace ravelin {

class AliasData;

/// Mounts the announced shares as guest, finds out where they are mounted, unmounts them and puts
/// aliases of them on the desktop. It keeps nothing between calls. Any thread, but one disk on one
/// thread at a time; every operation waits until the system has done its part. The reason for a
/// failure is in the log. Where a program of the system has to be run and cannot be started, the
/// operation throws platform::LaunchException.
class DiskManager {
 public:
  /// Mounts the disk's share where the system chooses, unless it is mounted already; true when it
  /// is mounted. Sets the disk's volumeReference when it had to be mounted.
  bool mountDisk(Disk& disk);

  /// Unmounts the disk's share; true when it is not mounted any more.
  bool unmountDisk(const Disk& disk);

  /// Whether the disk's share is mounted, or can be mounted by command in the user's support
  /// folder; such a trial is undone at once.
  bool isDiskMountable(const Disk& disk);

  /// Where the disk's share is mounted, according to the system's mount table; null when it is not
  /// in there. The table is searched for the server's address and the share's name as they stand,
  /// wherever they occur; in the source of a share also in another case, on a system that may have
  /// lost the case of its name.
  static Text getMountedDiskMountDirectory(const Disk& disk);

  /// Puts an alias of the volume at the path on the desktop, under the last component of the path;
  /// true when there is an item of this name afterwards. One that is there already stays as it is.
  /// On another thread than the main thread, whose run loop must be running then.
  bool createDesktopAliasForPath(const std::string& path);

 protected:
  // Mounting and unmounting by the system's own means.
  bool _coreServicesMountDisk(Disk& disk);
  bool _coreServicesUnmountDisk(const Disk& disk);

  // Mounting and unmounting by command.
  bool _shellMountDisk(const Disk& disk);
  bool _shellUnMountDiskAtPath(const std::string& path);
  bool _shellUnmountAlreadyMountedVolume(const Disk& disk);
  bool _shellUnmountDisk(const Disk& disk);

  static Text _getMountPathForDiskIfAlreadyMounted(const Disk& disk);
  static Text _mountOperationEncodeURL(const Text& string);

  /// Whether the alias script ran without error. Main thread.
  bool _makeAliasWithData(const AliasData& data);
};

}  // namespace ravelin
