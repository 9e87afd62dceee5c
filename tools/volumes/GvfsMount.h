#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "common/GioTypes.h"
#include "platform/linux/VolumeSituation.h"

namespace ravelin::volumes {

/// Mounts and unmounts one place by GVfs, which works in the loop of the main thread meanwhile.
/// Each operation answers after LIMIT at the latest. One operation per object.
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
  /// password is told that this is an anonymous user, once.
  Situation mount();

  /// Unmounts the place, unless files there are open, and waits until its path is gone.
  Situation unmount();

  /// The path of what has been mounted, without links on the way.
  [[nodiscard]] const std::string& mountPoint() const { return _mountPoint; }

  /// What GVfs said about a failure, for people; may be empty.
  [[nodiscard]] const std::string& message() const { return _message; }

 private:
  Situation _find();
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
  int _timesAsked = 0;
  bool _timeIsUp = false;
  bool _inUse = false;
  std::string _mountPoint;
  std::string _message;
};

}  // namespace ravelin::volumes
