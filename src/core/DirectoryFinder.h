#pragma once

#include <string>

#include "base/Text.h"
#include "platform/SearchPaths.h"

namespace ravelin {

/// The agent's standard folders, looked up afresh at every call. Any thread.
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

  /// Where the share of the disk with this label is mounted by command: a folder named after the
  /// label, as it stands, in the user's support folder. It is not created.
  static std::string diskMountDirectory(const Text& label);

 private:
  static Text _findOrCreateDirectory(platform::SearchPathDirectory directory,
                                     platform::SearchPathDomain inDomain,
                                     const Text& appendPathComponent);
};

}  // namespace ravelin
