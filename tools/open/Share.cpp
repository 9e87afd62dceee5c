#include "Share.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "ShareUrl.h"
#include "common/InQuotes.h"
#include "platform/linux/GioTypes.h"
#include "platform/linux/gvfs/gio/GioOperation.h"
#include "platform/linux/gvfs/gio/GuestMount.h"
#include "platform/linux/gvfs/gio/MountTrouble.h"

namespace ravelin::open {

using gvfs::GioOperation;
using gvfs::GuestMount;
using gvfs::MountTrouble;

namespace {

constexpr std::chrono::seconds LIMIT{30};

Failure failure(const std::string& message) { return {FAILED, message}; }

bool is(const Error& error, GIOErrorEnum code) {
  return g_error_matches(error.get(), G_IO_ERROR, code) != FALSE;
}

bool canOpenSmb() {
  const char* const* const schemes = g_vfs_get_supported_uri_schemes(g_vfs_get_default());
  return schemes != nullptr && g_strv_contains(schemes, "smb") != FALSE;
}

Failure failureWithoutSmb() {
  return failure(
      "nothing here can open SMB shares; install the package gvfs-backends, then log in again");
}

/// What the error is, as far as GIO says so.
MountTrouble troubleOf(const Error& error) {
  struct Meaning {
    GIOErrorEnum code;
    MountTrouble trouble;
  };
  constexpr std::array MEANINGS{
      Meaning{G_IO_ERROR_NOT_FOUND, MountTrouble::noSuchShare},
      Meaning{G_IO_ERROR_PERMISSION_DENIED, MountTrouble::notPermitted},
      Meaning{G_IO_ERROR_CONNECTION_REFUSED, MountTrouble::refused},
      Meaning{G_IO_ERROR_TIMED_OUT, MountTrouble::noAnswer},
      Meaning{G_IO_ERROR_HOST_UNREACHABLE, MountTrouble::noAnswer},
      Meaning{G_IO_ERROR_NETWORK_UNREACHABLE, MountTrouble::noAnswer},
  };
  const auto* const meaning = std::ranges::find_if(
      MEANINGS, [&](const Meaning& candidate) { return is(error, candidate.code); });
  return meaning != MEANINGS.end() ? meaning->trouble : gvfs::mountTroubleBehind(error->message);
}

/// Asks the server itself, where GVfs says the same of different things.
MountTrouble troubleOf(const std::string& server) {
  constexpr std::chrono::seconds PATIENCE{3};
  constexpr guint16 SMB_PORT = 445;
  const Owned<GSocketConnectable> address(
      G_SOCKET_CONNECTABLE(g_inet_socket_address_new_from_string(server.c_str(), SMB_PORT)));
  const Owned<GSocketClient> client(g_socket_client_new());
  g_socket_client_set_enable_proxy(client.get(), FALSE);
  GioOperation operation(PATIENCE);
  g_socket_client_connect_async(client.get(), address.get(), operation.cancellable(),
                                GioOperation::onDone, &operation);
  GError* raised = nullptr;
  const Owned<GSocketConnection> connection(
      g_socket_client_connect_finish(client.get(), operation.await().get(), &raised));
  const Error error(raised);
  if (error == nullptr) {
    return MountTrouble::unknown;
  }
  return is(error, G_IO_ERROR_CONNECTION_REFUSED) ? MountTrouble::refused : MountTrouble::noAnswer;
}

Failure failureOf(MountTrouble trouble, const ShareName& name) {
  const std::string device = "the device " + name.server;
  switch (trouble) {
    case MountTrouble::noSuchShare:
      return failure(device + " has no share named " + inQuotes(name.share) +
                     "; check whether its disk is plugged in and has this name");
    case MountTrouble::notPermitted:
      return failure(device + " lets no guests in to " + inQuotes(name.share) +
                     "; allow guests in its settings");
    case MountTrouble::refused:
      return failure(device +
                     " does not share its disk now; wait until it has started, or restart it");
    case MountTrouble::noAnswer:
      return failure(device +
                     " does not answer; check that it is switched on and in the same network");
    case MountTrouble::unknown:
      break;
  }
  return failure(device + " answers, but not as SMB 2 or later wants it; look for an update of it");
}

/// Why GVfs has failed.
Failure failureOf(const Error& error, const GioOperation& operation, const std::string& url) {
  const ShareName name = nameInShareUrl(url);
  if (operation.wasGivenUp()) {
    return failureOf(MountTrouble::noAnswer, name);
  }
  const MountTrouble trouble = troubleOf(error);
  return failureOf(trouble == MountTrouble::unknown ? troubleOf(name.server) : trouble, name);
}

/// A share that is mounted may have lost its server since.
std::optional<Failure> askShare(GFile* file, const std::string& url) {
  GioOperation operation(LIMIT);
  g_file_query_info_async(file, G_FILE_ATTRIBUTE_STANDARD_TYPE, G_FILE_QUERY_INFO_NONE,
                          G_PRIORITY_DEFAULT, operation.cancellable(), GioOperation::onDone,
                          &operation);
  GError* raised = nullptr;
  const Owned<GFileInfo> info(g_file_query_info_finish(file, operation.await().get(), &raised));
  const Error error(raised);
  return error == nullptr ? std::nullopt : std::optional(failureOf(error, operation, url));
}

}  // namespace

std::optional<Failure> mountShare(const std::string& url) {
  if (!canOpenSmb()) {
    return failureWithoutSmb();
  }
  const Owned<GFile> file(g_file_new_for_uri(url.c_str()));
  GioOperation operation(LIMIT);
  GuestMount mount(file.get(), operation);
  mount.start(operation.cancellable());
  const Error error = mount.finish(operation.await().get());
  if (error == nullptr) {
    return std::nullopt;
  }
  if (is(error, G_IO_ERROR_ALREADY_MOUNTED)) {
    return askShare(file.get(), url);
  }
  if (mount.isGuestRefused()) {
    return failureOf(MountTrouble::notPermitted, nameInShareUrl(url));
  }
  if (is(error, G_IO_ERROR_NOT_SUPPORTED)) {
    return failureWithoutSmb();
  }
  return failureOf(error, operation, url);
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
  if (operation.wasGivenUp()) {
    return failure("the file manager did not answer within " + std::to_string(LIMIT.count()) +
                   " seconds; close it and try again");
  }
  if (is(error, G_IO_ERROR_NOT_SUPPORTED) || is(error, G_IO_ERROR_NOT_FOUND)) {
    return failure("nothing here shows folders; install a file manager");
  }
  return failure(
      std::string("the file manager cannot be started; try another one, as this one says: ")
          .append(error->message));
}

}  // namespace ravelin::open
