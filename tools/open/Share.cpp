#include "Share.h"

#include <chrono>

#include "Operation.h"
#include "Printable.h"
#include "platform/linux/GioTypes.h"

namespace ravelin::open {

namespace {

constexpr std::chrono::seconds LIMIT{30};

Failure failure(const std::string& message) { return {FAILED, message}; }

Failure timeout(const std::string& whose) {
  return failure(whose + " did not answer within " + std::to_string(LIMIT.count()) + " seconds");
}

void onAskPassword(GMountOperation* operation, const char* /*message*/, const char* /*user*/,
                   const char* /*domain*/, GAskPasswordFlags /*flags*/, gpointer timesAsked) {
  // Asked again, the same answer would only be refused again.
  const bool first = ++*static_cast<int*>(timesAsked) == 1;
  g_mount_operation_set_anonymous(operation, TRUE);
  g_mount_operation_reply(operation, first ? G_MOUNT_OPERATION_HANDLED : G_MOUNT_OPERATION_ABORTED);
}

void onAskQuestion(GMountOperation* operation, const char* /*message*/, const char** /*choices*/,
                   gpointer /*data*/) {
  g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
}

}  // namespace

std::optional<Failure> mountShare(const std::string& url) {
  const Owned<GFile> file(g_file_new_for_uri(url.c_str()));
  const Owned<GMountOperation> answers(g_mount_operation_new());
  int timesAsked = 0;
  g_signal_connect(answers.get(), "ask-password", G_CALLBACK(onAskPassword), &timesAsked);
  g_signal_connect(answers.get(), "ask-question", G_CALLBACK(onAskQuestion), nullptr);
  Operation operation(LIMIT);
  g_file_mount_enclosing_volume(file.get(), G_MOUNT_MOUNT_NONE, answers.get(),
                                operation.cancellable(), Operation::onDone, &operation);
  GError* raised = nullptr;
  g_file_mount_enclosing_volume_finish(file.get(), operation.await(), &raised);
  const Error error(raised);
  g_signal_handlers_disconnect_by_data(answers.get(), &timesAsked);
  if (error == nullptr ||
      g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_ALREADY_MOUNTED) != FALSE) {
    return std::nullopt;
  }
  if (operation.timeIsUp()) {
    return timeout("the device");
  }
  if (timesAsked > 1) {
    return failure("the device does not let guests in");
  }
  if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED) != FALSE) {
    return failure("SMB shares cannot be mounted here, as GVfs or its SMB part is missing");
  }
  return failure(printable(error->message));
}

std::optional<Failure> showShare(const std::string& url) {
  Operation operation(LIMIT);
  g_app_info_launch_default_for_uri_async(url.c_str(), nullptr, operation.cancellable(),
                                          Operation::onDone, &operation);
  GError* raised = nullptr;
  g_app_info_launch_default_for_uri_finish(operation.await(), &raised);
  const Error error(raised);
  if (error == nullptr) {
    return std::nullopt;
  }
  return operation.timeIsUp() ? timeout("the share or the file manager")
                              : failure("it cannot be shown: " + printable(error->message));
}

}  // namespace ravelin::open
