#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ravelin::fakes {

/// The volumes that the system has mounted, while this lives, by the calls of CoreServices', by
/// NetFS and by unmount(2). Mount points of servers' shares are made as empty folders in a folder
/// of the test's. The calls of CoreServices' are found by their names alone (see FakeSystem::lose).
/// One at a time; any thread.
class FakeVolumes {
 public:
  /// Statuses of CoreServices'. NetFS has numbers of errno's.
  enum Status : std::int32_t {
    OK = 0,
    NO_SUCH_VOLUME = -35,
    IN_USE = -47,
    BAD_PARAMETER = -50,
    ALREADY_MOUNTED = -55,
    CANCELLED = -128,
    SERVER_NOT_FOUND = -5016,
    NO_AUTHENTICATION = -5023,
    NO_MOUNT_POINT = 1,  ///< NetFS: says that it has mounted, and not where
  };

  /// What somebody asked to be mounted.
  struct Mount {
    std::string url;
    std::string folder;  ///< empty where the system is to choose
    std::string user;
    std::string password;
    bool asGuest = false;  ///< NetFS: as nobody in particular
    bool mayAsk = true;    ///< NetFS: may show a dialogue
    bool byNetFs = false;
    bool operator==(const Mount&) const = default;
  };

  explicit FakeVolumes(const std::string& folder);
  ~FakeVolumes();
  FakeVolumes(const FakeVolumes&) = delete;
  FakeVolumes& operator=(const FakeVolumes&) = delete;

  /// A volume that is mounted already; returns its reference, which is negative. The source is what
  /// the table of mounts lists; it begins with "//" where the volume is a server's share.
  std::int16_t add(const std::string& name, const std::string& path, const std::string& source);

  /// Somebody else unmounts it.
  void takeAway(std::int16_t reference);

  /// What the next mounts, or unmounts, fail with; OK ends that.
  void refuseMounts(std::int32_t status);
  void refuseUnmounts(std::int32_t status);

  [[nodiscard]] std::vector<Mount> mounts() const;

  /// The mount points, in the order of mounting.
  [[nodiscard]] std::vector<std::string> mountPoints() const;
};

}  // namespace ravelin::fakes
