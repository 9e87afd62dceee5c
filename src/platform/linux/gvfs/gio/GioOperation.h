#pragma once

#include <chrono>

#include "platform/linux/GioTypes.h"

namespace ravelin::gvfs {

/// What GIO is asked to do, one thing after the other. It works in the loop of the main thread,
/// which runs while the end of what it does is awaited. What is not done within the limit is given
/// up. Main thread.
class GioOperation {
 public:
  /// The limit holds from now on.
  explicit GioOperation(std::chrono::milliseconds limit);
  ~GioOperation();
  GioOperation(const GioOperation&) = delete;
  GioOperation& operator=(const GioOperation&) = delete;

  /// To be given to what GIO is asked to do, with this object as its data.
  static void onDone(GObject* source, GAsyncResult* result, gpointer self);

  /// Cancelled when it is given up.
  [[nodiscard]] GCancellable* cancellable() const { return _cancellable.get(); }

  /// Waits until GIO calls back, which it does soon after the cancellable that it has been given is
  /// cancelled.
  Owned<GAsyncResult> await();

  /// Waits until GIO calls back or it is given up: null then. After allow() it can be awaited
  /// again.
  Owned<GAsyncResult> awaitUntilGivenUp();

  /// Gives up, as when the limit is over. While it is awaited, from the loop.
  void giveUp();

  /// Has a new limit hold from now on, and makes a new cancellable.
  void allow(std::chrono::milliseconds limit);

  /// Whether it has been given up, also before a new limit.
  [[nodiscard]] bool wasGivenUp() const { return _wasGivenUp; }

 private:
  void _stopTimer();
  static gboolean _onTimeUp(gpointer self);

  Loop _loop{g_main_loop_new(nullptr, FALSE)};
  Owned<GCancellable> _cancellable;
  Owned<GAsyncResult> _result;
  guint _timer = 0;
  bool _isGivenUp = false;  ///< since the last limit
  bool _wasGivenUp = false;
};

}  // namespace ravelin::gvfs
