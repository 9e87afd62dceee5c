#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Text.h"
#include "platform/Service.h"

namespace ravelin::platform {

/// How an operation on a volume ended: 0 is success, any other number a failure of this system's
/// own.
using VolumeStatus = std::int32_t;

/// What became of an operation on a volume.
struct VolumeOutcome {
  VolumeStatus status = 0;
  std::string comment;  ///< what the status means, and why, for people: ASCII, one line
};

/// A volume of a server that has been asked to be mounted.
struct ServerVolumeMount {
  VolumeStatus status = 0;
  std::string comment;  ///< as in VolumeOutcome
  /// The handle of the volume; 0 when it could not be mounted.
  std::int16_t reference = 0;
};

/// One volume of those that are mounted.
struct Volume {
  std::string name;      ///< as it shows in the volume's path; may be empty
  std::string rootPath;  ///< absolute
};

/// One share of those that are mounted, by whatever means.
struct MountedShare {
  std::string server;    ///< as it was given when it was mounted, with its port where it has one
  std::string share;     ///< without escapes; its case may be lost
  std::string rootPath;  ///< as the mount table lists it
  bool operator==(const MountedShare&) const = default;
};

/// The volumes that the system mounts on behalf of the user, without a place of the caller's
/// choosing. Any thread; the caller waits until the system has done it or given up.
class Volumes {
 public:
  virtual ~Volumes() = default;

  /// Mounts the share of a server, "smb://server/share" with percent escapes, for the user; the
  /// system chooses the mount point. A reference is not given a second time by this process while
  /// its volume is mounted.
  virtual ServerVolumeMount mountServerVolume(const std::string& url, const std::string& user,
                                              const std::string& password) = 0;

  /// Unmounts the volume, without force where the system finds it in use.
  virtual VolumeOutcome unmountVolume(std::int16_t reference) = 0;

  /// The reference of the volume that is mounted at the path, by whomever; 0 where there is none
  /// that could be unmounted by it.
  virtual std::int16_t referenceOfVolume(const std::string& path) = 0;

  /// Where the volume is mounted; null when it is not, or not any more.
  virtual Text pathOfVolume(std::int16_t reference) = 0;

  /// The volumes that are mounted now, in the system's order; none where they cannot be told.
  virtual std::vector<Volume> volumes() = 0;

  /// The shares of servers that are mounted now.
  virtual std::vector<MountedShare> mountedShares() = 0;
};

template <>
Volumes& native<Volumes>();

}  // namespace ravelin::platform
