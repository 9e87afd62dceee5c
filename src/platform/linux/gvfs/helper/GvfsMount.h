#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "platform/linux/GioTypes.h"
#include "platform/linux/gvfs/VolumeSituation.h"

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

  /// Mounts the place, and waits until its files can be reached by path. Whoever asks for a
  /// password is told that this is an anonymous user, once. What is given up may still be mounted
  /// later by GVfs, which cannot be stopped.
  Situation mount();

  /// Has the operation end as when the time is up. From the loop.
  void giveUp();

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
  void _allow(std::chrono::milliseconds limit);
  Error _finishMount();
  Situation _find();
  Situation _unmountUnused();
  /// Tries for some seconds as long as GVfs itself is busy with the place.
  Situation _unmountWhenIdle(const std::function<Situation()>& unmount);
  Situation _unmountFound();
  Situation _waitForPath();
  void _waitUntil(const std::function<bool()>& holds);

  /// Runs the loop until the operation that has been started calls back.
  void _await();
  Situation _judge(Error error);

  static void _onAskPassword(GMountOperation* operation, const char* message, const char* user,
                             const char* domain, GAskPasswordFlags flags, gpointer self);
  static void _onShowProcesses(GMountOperation* operation, const char* message, GArray* processes,
                               const char** choices, gpointer self);
  static void _onDone(GObject* source, GAsyncResult* result, gpointer self);
  static gboolean _onTimeUp(gpointer self);

  Owned<GFile> _file;
  Loop _loop{g_main_loop_new(nullptr, FALSE)};
  Owned<GCancellable> _cancellable{g_cancellable_new()};
  Owned<GMountOperation> _operation{g_mount_operation_new()};
  Owned<GMount> _found;
  Owned<GAsyncResult> _result;
  guint _timer = 0;
  bool _isPending = false;
  bool _isMounted = false;
  int _timesAsked = 0;
  bool _timeIsUp = false;
  bool _inUse = false;  ///< by what GVfs does there itself
  std::string _mountPoint;
  std::string _message;
};

}  // namespace ravelin::volumes
