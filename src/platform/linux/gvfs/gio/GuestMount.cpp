#include "GuestMount.h"

namespace ravelin::gvfs {

GuestMount::GuestMount(GFile* place, GioOperation& operation)
    : _place(place), _operation(operation) {
  g_signal_connect(_answers.get(), "ask-password", G_CALLBACK(_onAskPassword), this);
  g_signal_connect(_answers.get(), "ask-question", G_CALLBACK(_onAskQuestion), this);
}

GuestMount::~GuestMount() { g_signal_handlers_disconnect_by_data(_answers.get(), this); }

void GuestMount::start(GCancellable* cancellable) {
  g_file_mount_enclosing_volume(_place, G_MOUNT_MOUNT_NONE, _answers.get(), cancellable,
                                GioOperation::onDone, &_operation);
}

Error GuestMount::finish(GAsyncResult* result) {
  GError* error = nullptr;
  g_file_mount_enclosing_volume_finish(_place, result, &error);
  return Error(error);
}

void GuestMount::_onAskPassword(GMountOperation* answers, const char* /*message*/,
                                const char* /*user*/, const char* /*domain*/,
                                GAskPasswordFlags /*flags*/, gpointer self) {
  auto& mount = *static_cast<GuestMount*>(self);
  ++mount._timesAsked;
  const bool isTold = mount._timesAsked == 1 && !mount._operation.wasGivenUp();
  g_mount_operation_set_anonymous(answers, TRUE);
  g_mount_operation_reply(answers, isTold ? G_MOUNT_OPERATION_HANDLED : G_MOUNT_OPERATION_ABORTED);
}

void GuestMount::_onAskQuestion(GMountOperation* answers, const char* /*message*/,
                                const char** /*choices*/, gpointer /*self*/) {
  g_mount_operation_reply(answers, G_MOUNT_OPERATION_ABORTED);
}

}  // namespace ravelin::gvfs
