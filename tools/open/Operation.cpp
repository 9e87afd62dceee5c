#include "Operation.h"

namespace ravelin::open {

Operation::Operation(std::chrono::seconds limit)
    : _timer(g_timeout_add_seconds(static_cast<guint>(limit.count()), _onTimeUp, this)) {}

Operation::~Operation() {
  if (!_timeIsUp) {
    g_source_remove(_timer);
  }
}

void Operation::onDone(GObject* /*source*/, GAsyncResult* result, gpointer self) {
  auto& operation = *static_cast<Operation*>(self);
  operation._result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
  g_main_loop_quit(operation._loop.get());
}

GAsyncResult* Operation::await() {
  // The loop may have been quit before it runs.
  while (_result == nullptr) {
    g_main_loop_run(_loop.get());
  }
  return _result.get();
}

gboolean Operation::_onTimeUp(gpointer self) {
  auto& operation = *static_cast<Operation*>(self);
  operation._timeIsUp = true;
  g_cancellable_cancel(operation._cancellable.get());
  return G_SOURCE_REMOVE;
}

}  // namespace ravelin::open
