#include "Share.h"

#include <chrono>

#include "platform/linux/GioTypes.h"
#include "platform/linux/gvfs/gio/GioOperation.h"
#include "platform/linux/gvfs/gio/GuestMount.h"

namespace ravelin::open {

using gvfs::GioOperation;
using gvfs::GuestMount;

namespace {

constexpr std::chrono::seconds LIMIT{30};

Failure failure(const std::string& message) { return {FAILED, message}; }

Failure timeout(const std::string& whose) {
  return failure(whose + " did not answer within " + std::to_string(LIMIT.count()) + " seconds");
}

}  // namespace

std::optional<Failure> mountShare(const std::string& url) {
  const Owned<GFile> file(g_file_new_for_uri(url.c_str()));
  GioOperation operation(LIMIT);
  GuestMount mount(file.get(), operation);
  mount.start(operation.cancellable());
  const Error error = mount.finish(operation.await().get());
  if (error == nullptr ||
      g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_ALREADY_MOUNTED) != FALSE) {
    return std::nullopt;
  }
  if (operation.wasGivenUp()) {
    return timeout("the device");
  }
  if (mount.isGuestRefused()) {
    return failure("the device does not let guests in");
  }
  if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED) != FALSE) {
    return failure("SMB shares cannot be mounted here, as GVfs or its SMB part is missing");
  }
  return failure(error->message);
}

std::optional<Failure> showShare(const std::string& url) {
  GioOperation operation(LIMIT);
  g_app_info_launch_default_for_uri_async(url.c_str(), nullptr, operation.cancellable(),
                                          GioOperation::onDone, &operation);
  GError* raised = nullptr;
  g_app_info_launch_default_for_uri_finish(operation.await().get(), &raised);
  const Error error(raised);
  if (error == nullptr) {
    return std::nullopt;
  }
  return operation.wasGivenUp()
             ? timeout("the share or the file manager")
             : failure(std::string("it cannot be shown: ").append(error->message));
}

}  // namespace ravelin::open
