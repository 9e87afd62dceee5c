#pragma once

#include <string>

#include "platform/SearchPaths.h"
#include "platform/Text.h"

namespace ravelin {

class Disk;

/// Knows the agent's standard folders. Every answer is found out afresh. Any thread.
class DirectoryFinder {
 public:
  /// The user's desktop folder, which is not created; null when the system has none.
  static Text desktopDirectory();

  /// The agent's support folder for the whole machine, created when missing; null when it is not
  /// there and cannot be created.
  static Text LocalApplicationSupportDirectory();

  /// The agent's support folder of the current user, created when missing; null when it is not
  /// there and cannot be created.
  static Text UserApplicationSupportDirectory();

  /// Where the disk's share is mounted by command: a folder named after the label, as it stands,
  /// in the user's support folder. It is not created.
  static std::string diskMountDirectory(const Disk& disk);

 private:
  static Text _findOrCreateDirectory(platform::SearchPathDirectory directory,
                                     platform::SearchPathDomain inDomain,
                                     const Text& appendPathComponent);
};

}  // namespace ravelin
