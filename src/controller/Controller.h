#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/ThreadSafety.h"
#include "controller/Admission.h"
#include "controller/LazyTimer.h"
#include "controller/MountedDisks.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "disk/Queue.h"
#include "intake/ServerDelegate.h"
#include "platform/Image.h"
#include "platform/RunLoop.h"
#include "platform/scripts/ScriptRunner.h"

namespace ravelin {

/// Takes the announcements, decides which disks count as mounted, and keeps one shortcut on the
/// desktop for each of them. Announcements come in on the main thread; a thread of the
/// controller's own, the handler thread, acts on them. Create and destroy it on the main thread.
class Controller : public ServerDelegate {
 public:
  /// Starts the handler thread.
  Controller();
  /// Ends the handler thread, and waits for it; what it has handed to the main thread by then is
  /// served meanwhile, but no shortcut is made any more. The shortcuts that are there stay.
  ~Controller() override;
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  /// Takes one datagram; a complete announcement that does not repeat a waiting one waits for the
  /// handler thread, unless it is dropped for its sender's limits, which the log may tell; anything
  /// else is dropped without a trace. Main thread.
  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override EXCLUDES(_mutex);

  /// Removes the shortcut of every mounted disk, and of one that is just being mounted, and forgets
  /// the disks. Main thread.
  void unmountAll() EXCLUDES(_mutex);

  /// Writes the list of the mounted disks' shortcuts to the record file, wholly or not at all; a
  /// failure is logged. Percent signs in a label are taken for formatting. Any thread.
  void recordMountedDisks() const EXCLUDES(_mutex);

  /// Removes every shortcut that the record file lists, and logs each; what is listed and is no
  /// shortcut stays. Without a readable record file of at most 256 MiB nothing happens. The file
  /// and the mounted records stay as they are. Any thread.
  static void deleteRecordedDisks();

  /// What mounts shares directly; nothing in the handling of announcements uses it.
  [[nodiscard]] DiskManager& diskManager() { return _diskManager; }

  /// The mounted records, in the order in which they were mounted. A copy; any thread.
  [[nodiscard]] std::vector<DiskPtr> mountedDisks() const EXCLUDES(_mutex);

  /// Puts these records, none of them null, in the place of all others. No shortcut is made or
  /// removed for that, and a disk that is just being mounted joins the new list. Any thread.
  void setMountedDisks(const std::vector<DiskPtr>& mountedDisks) EXCLUDES(_mutex);

  /// The events that wait for the handler thread, the next one first. A copy; any thread.
  [[nodiscard]] std::vector<DiskPtr> diskEventQueue() const EXCLUDES(_mutex);

  /// Puts these events, none of them null, in the place of all that wait, whether or not they would
  /// have been taken as announcements. Any thread.
  void setDiskEventQueue(const std::vector<DiskPtr>& diskEventQueue) EXCLUDES(_mutex);

  /// How many events wait for the handler thread. Any thread.
  [[nodiscard]] std::size_t waitingEvents() const EXCLUDES(_mutex);

 protected:
  // The handler thread.
  void _startDiskEventHandler(std::promise<platform::RunLoop*> started);
  void _processNextDiskEvent() EXCLUDES(_mutex);
  void _process(const DiskPtr& event) EXCLUDES(_mutex);

  // Judging events. Any thread.
  static bool _isDiskValid(const Disk* disk);
  [[nodiscard]] bool _isUniqueEvent(const Disk& event) const REQUIRES(_mutex);
  [[nodiscard]] DiskPtr _findMountedInternalDisk(const Disk& event) const EXCLUDES(_mutex);
  [[nodiscard]] bool _isDiskMounted(const Disk& event) const EXCLUDES(_mutex);
  [[nodiscard]] bool _shouldDiskRemounted(const Disk& event) const EXCLUDES(_mutex);

  // Mounting and unmounting. The handler thread, or the main thread through unmountAll. The desktop
  // folder is looked up anew for each disk, and is null where there is none.
  void _mountDisk(const DiskPtr& disk) EXCLUDES(_mutex);
  void _unmountDisk(const Disk& event) EXCLUDES(_mutex);
  static void _deleteAliasAtPath(const std::string& path, const Text& desktop);
  static std::string _getAliasPathForDisk(const Disk& disk, const Text& desktop);
  static std::string _shortcutPathForDisk(const Disk& disk, const Text& desktop);
  static void runApplescript(const platform::Script& source);
  static Text _encodeURLString(const std::string& string);
  /// The first readable picture of the four places, or null. Main thread.
  static std::unique_ptr<platform::Image> _getImage();
  static void setImageInMainThread(const Disk& disk, const Text& desktop);
  static bool SnowLeopardAndAbove();

  // Liveness. The handler thread.
  void _updateDiskUpdateTime(const Disk& event) EXCLUDES(_mutex);
  void _checkUpdateTimesAndUnmountDisksIfNecessary() EXCLUDES(_mutex);
  /// Makes the check if it is due and has not been made. Called between two events, too, since a
  /// tick ends only when no event waits, which a flood can put off for ever.
  void _checkUpdateTimesWhenDue() EXCLUDES(_mutex);

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// Never held across a hand-over, a script or a file operation.
  mutable Mutex _mutex;
  MountedDisks _mountedDisks GUARDED_BY(_mutex);
  Queue _diskEventQueue GUARDED_BY(_mutex);
  Admission _admission GUARDED_BY(_mutex){_diskEventQueue, _mountedDisks};
  /// The disk whose shortcut is being made, or made, but that is not on the list yet; taken away
  /// when unmountAll comes in between.
  DiskPtr _diskBeingMounted GUARDED_BY(_mutex);

  DiskManager _diskManager;
  std::atomic<bool> _handlerShouldEnd = false;
  LazyTimer _diskEventHandlerTimer;
  LazyTimer _diskUpdateTimeCheckerTimer;
  /// When the first of the disks that are known became known.
  Time _disksKnownSince GUARDED_BY(_mutex);
  Time _nextCheck;                // the handler thread's own
  bool _handlerMayLeave = false;  // the handler thread's own
  std::atomic<bool> _handlerHasEnded = false;
  platform::RunLoop* _handlerRunLoop = nullptr;
  std::thread _handlerThread;
};

}  // namespace ravelin
