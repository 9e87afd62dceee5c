#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "platform/linux/GioTypes.h"
#include "platform/linux/gvfs/VolumeSituation.h"
#include "platform/linux/gvfs/gio/GioOperation.h"
#include "platform/linux/gvfs/gio/GuestMount.h"

namespace ravelin::volumes {

/// Mounts and unmounts one place by GVfs, which works in the loop of the main thread meanwhile.
/// GVfs is given LIMIT for what is asked of it. One operation per object.
class GvfsMount {
 public:
  using Situation = platform::VolumeSituation;

  static constexpr std::chrono::seconds LIMIT{30};

  /// The place has a URL, or a path of the file system.
  explicit GvfsMount(const char* place);
  ~GvfsMount();
  GvfsMount(const GvfsMount&) = delete;
  GvfsMount& operator=(const GvfsMount&) = delete;

  /// Mounts the place as guest, and waits until its files can be reached by path. What is given up
  /// may still be mounted later by GVfs, which cannot be stopped.
  Situation mount();

  /// Has the operation end as when the time is up. From the loop.
  void giveUp() { _operation.giveUp(); }

  /// Unmounts again what mount() has mounted, also what arrives after it has been given up: waits
  /// until GVfs has done with it, half an hour at most.
  void undo();

  /// Unmounts the place, unless somebody has files there open or works in a folder there, and waits
  /// until its path is gone.
  Situation unmount();

  /// The path of what has been mounted, without links on the way.
  [[nodiscard]] const std::string& mountPoint() const { return _mountPoint; }

  /// What is to be said about a failure, mostly by GVfs, for people; may be empty.
  [[nodiscard]] const std::string& message() const { return _message; }

 private:
  Error _finishMount(GAsyncResult* result);
  Situation _find();
  Situation _unmountUnused();
  /// Tries for some seconds as long as GVfs itself is busy with the place.
  Situation _unmountWhenIdle(const std::function<Situation()>& unmount);
  Situation _unmountFound();
  Situation _waitForPath();
  void _waitUntil(const std::function<bool()>& holds);
  Situation _judge(Error error);

  static void _onShowProcesses(GMountOperation* answers, const char* message, GArray* processes,
                               const char** choices, gpointer self);

  Owned<GFile> _file;
  gvfs::GioOperation _operation{LIMIT};
  gvfs::GuestMount _mount{_file.get(), _operation};
  Owned<GMount> _found;
  bool _isPending = false;  ///< GVfs has been asked to mount and has not called back
  bool _isMounted = false;
  bool _inUse = false;  ///< by what GVfs does there itself
  std::string _mountPoint;
  std::string _message;
};

}  // namespace ravelin::volumes
