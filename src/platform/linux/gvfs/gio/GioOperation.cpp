#include "GioOperation.h"

#include <utility>

namespace ravelin::gvfs {

GioOperation::GioOperation(std::chrono::milliseconds limit) { allow(limit); }

GioOperation::~GioOperation() { _stopTimer(); }

void GioOperation::onDone(GObject* /*source*/, GAsyncResult* result, gpointer self) {
  auto& operation = *static_cast<GioOperation*>(self);
  operation._result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
  g_main_loop_quit(operation._loop.get());
}

Owned<GAsyncResult> GioOperation::await() {
  // The loop may have been quit before it runs, or because it is given up.
  while (_result == nullptr) {
    g_main_loop_run(_loop.get());
  }
  return std::move(_result);
}

Owned<GAsyncResult> GioOperation::awaitUntilGivenUp() {
  while (_result == nullptr && !_isGivenUp) {
    g_main_loop_run(_loop.get());
  }
  return std::move(_result);
}

void GioOperation::giveUp() {
  _isGivenUp = true;
  _wasGivenUp = true;
  g_cancellable_cancel(_cancellable.get());
  g_main_loop_quit(_loop.get());
}

void GioOperation::allow(std::chrono::milliseconds limit) {
  _stopTimer();
  _timer = g_timeout_add(static_cast<guint>(limit.count()), _onTimeUp, this);
  _cancellable.reset(g_cancellable_new());
  _isGivenUp = false;
}

void GioOperation::_stopTimer() {
  if (_timer != 0) {
    g_source_remove(std::exchange(_timer, 0));
  }
}

gboolean GioOperation::_onTimeUp(gpointer self) {
  auto& operation = *static_cast<GioOperation*>(self);
  operation._timer = 0;
  operation.giveUp();
  return G_SOURCE_REMOVE;
}

}  // namespace ravelin::gvfs
