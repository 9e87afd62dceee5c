#pragma once

#include <chrono>

#include "platform/linux/GioTypes.h"

namespace ravelin::open {

/// One asynchronous operation of GIO's, which works in the loop of the main thread meanwhile. It is
/// cancelled when the limit is over.
class Operation {
 public:
  explicit Operation(std::chrono::seconds limit);
  ~Operation();
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// To be given to the operation, with this object as its data.
  [[nodiscard]] GCancellable* cancellable() const { return _cancellable.get(); }
  static void onDone(GObject* source, GAsyncResult* result, gpointer self);

  /// Waits until the operation that has been started calls back.
  GAsyncResult* await();

  /// Whether the limit was over first.
  [[nodiscard]] bool timeIsUp() const { return _timeIsUp; }

 private:
  static gboolean _onTimeUp(gpointer self);

  Loop _loop{g_main_loop_new(nullptr, FALSE)};
  Owned<GCancellable> _cancellable{g_cancellable_new()};
  Owned<GAsyncResult> _result;
  guint _timer;
  bool _timeIsUp = false;
};

}  // namespace ravelin::open
