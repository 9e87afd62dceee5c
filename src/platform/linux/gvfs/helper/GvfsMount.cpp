#include "GvfsMount.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/linux/gvfs/PathUsers.h"
#include "platform/linux/gvfs/gio/MountTrouble.h"

namespace ravelin::volumes {

using gvfs::GioOperation;

namespace {

using Situation = GvfsMount::Situation;

/// How long after the mount its path may become reachable. Where the share has been mounted before,
/// the FUSE side of a busy GVfs goes on asking for that mount for more than five seconds.
constexpr std::chrono::seconds PATH_LIMIT{15};
constexpr guint PATH_INTERVAL = 20;  // milliseconds

/// How long undo() waits for a mount that was given up. GVfs itself gives up long before.
constexpr std::chrono::minutes LATE_LIMIT{30};

/// How often GVfs may be busy with the place: it may still be closing a file, and file managers
/// look into every new mount.
constexpr int BUSY_ATTEMPTS = 50;
constexpr guint BUSY_INTERVAL = 100;  // milliseconds

Situation situationBehind(std::string_view message) {
  switch (gvfs::mountTroubleBehind(message)) {
    case gvfs::MountTrouble::noSuchShare:
      return Situation::noSuchShare;
    case gvfs::MountTrouble::notPermitted:
      return Situation::notPermitted;
    case gvfs::MountTrouble::refused:
    case gvfs::MountTrouble::noAnswer:
      return Situation::noServer;
    case gvfs::MountTrouble::unknown:
      break;
  }
  return Situation::failed;
}

bool isMissing(const std::string& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

/// Whether the files at the path can be listed. As long as the FUSE side of GVfs asks for the mount
/// that was in this place before, that is an I/O error.
bool isUsable(const std::string& path) {
  std::error_code error;
  const std::filesystem::directory_iterator folder(path, error);
  return !error;
}

}  // namespace

GvfsMount::GvfsMount(const char* place) : _file(g_file_new_for_commandline_arg(place)) {
  g_signal_connect(_mount.answers(), "show-processes", G_CALLBACK(_onShowProcesses), this);
}

GvfsMount::~GvfsMount() { g_signal_handlers_disconnect_by_data(_mount.answers(), this); }

Situation GvfsMount::mount() {
  // Without a cancellable, so that its end is reported also after it has been given up: undo()
  // waits for it.
  _mount.start(nullptr);
  const auto result = _operation.awaitUntilGivenUp();
  _isPending = result == nullptr;
  if (_isPending) {
    return Situation::timedOut;
  }
  if (Error error = _finishMount(result.get())) {
    return _judge(std::move(error));
  }
  if (const Situation situation = _find(); situation != Situation::done) {
    return situation;
  }
  const Situation situation = _waitForPath();
  if (situation == Situation::noMountPoint) {
    undo();
  }
  return situation;
}

void GvfsMount::undo() {
  if (_isPending) {
    _operation.allow(LATE_LIMIT);
    const auto result = _operation.awaitUntilGivenUp();
    if (result == nullptr || _finishMount(result.get())) {
      return;
    }
  }
  _operation.allow(LIMIT);
  if (_isMounted && _find() == Situation::done) {
    _isMounted = _unmountWhenIdle([this] { return _unmountFound(); }) != Situation::done;
  }
}

Situation GvfsMount::_unmountWhenIdle(const std::function<Situation()>& unmount) {
  Situation situation = unmount();
  for (int attempt = 1; _inUse && attempt < BUSY_ATTEMPTS; ++attempt) {
    g_usleep(gulong{BUSY_INTERVAL} * 1000);
    _inUse = false;
    situation = unmount();
  }
  return situation;
}

Error GvfsMount::_finishMount(GAsyncResult* result) {
  Error error = _mount.finish(result);
  _isMounted = error == nullptr;
  return error;
}

Situation GvfsMount::unmount() {
  switch (const Situation situation = _find()) {
    case Situation::done:
      return _unmountWhenIdle([this] { return _unmountUnused(); });
    case Situation::timedOut:
      return situation;
    default:
      return Situation::notMounted;
  }
}

Situation GvfsMount::_find() {
  g_file_find_enclosing_mount_async(_file.get(), G_PRIORITY_DEFAULT, _operation.cancellable(),
                                    GioOperation::onDone, &_operation);
  GError* error = nullptr;
  _found.reset(g_file_find_enclosing_mount_finish(_file.get(), _operation.await().get(), &error));
  return error == nullptr ? Situation::done : _judge(Error(error));
}

Situation GvfsMount::_unmountUnused() {
  const Owned<GFile> root(g_mount_get_root(_found.get()));
  const String path(g_file_get_path(root.get()));
  if (path != nullptr) {
    // The kernel knows no links. The last component is the share itself, which is not asked.
    const std::filesystem::path place(path.get());
    std::error_code error;
    const auto folder = std::filesystem::canonical(place.parent_path(), error);
    const auto users = platform::usersOf((folder / place.filename()).string());
    if (!error && !users.empty()) {
      _message = platform::described(users);
      return Situation::inUse;
    }
  }
  return _unmountFound();
}

Situation GvfsMount::_unmountFound() {
  const Owned<GFile> root(g_mount_get_root(_found.get()));
  const String path(g_file_get_path(root.get()));
  g_mount_unmount_with_operation(_found.get(), G_MOUNT_UNMOUNT_NONE, _mount.answers(),
                                 _operation.cancellable(), GioOperation::onDone, &_operation);
  GError* error = nullptr;
  g_mount_unmount_with_operation_finish(_found.get(), _operation.await().get(), &error);
  if (error != nullptr) {
    return _judge(Error(error));
  }
  if (path != nullptr) {
    _waitUntil([where = std::string(path.get())] { return isMissing(where); });
  }
  return Situation::done;
}

Situation GvfsMount::_waitForPath() {
  const Owned<GFile> root(g_mount_get_root(_found.get()));
  const String path(g_file_get_path(root.get()));
  if (path == nullptr) {
    _message = "no path leads there";
    return Situation::noMountPoint;
  }
  _waitUntil([where = std::string(path.get())] { return isUsable(where); });
  std::error_code error;
  _mountPoint = std::filesystem::canonical(path.get(), error).string();
  _message = error.message();
  return error ? Situation::noMountPoint : Situation::done;
}

void GvfsMount::_waitUntil(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + PATH_LIMIT;
  while (!holds() && std::chrono::steady_clock::now() < deadline) {
    g_usleep(gulong{PATH_INTERVAL} * 1000);
  }
}

Situation GvfsMount::_judge(Error error) {
  _message = error->message;
  if (_operation.wasGivenUp()) {
    return Situation::timedOut;
  }
  if (_inUse) {
    return Situation::inUse;
  }
  if (_mount.isGuestRefused()) {
    return Situation::notPermitted;
  }
  if (error->domain != G_IO_ERROR) {
    return Situation::failed;
  }
  switch (error->code) {
    case G_IO_ERROR_ALREADY_MOUNTED:
      return Situation::alreadyMounted;
    case G_IO_ERROR_NOT_SUPPORTED:
      return Situation::noGvfs;
    case G_IO_ERROR_NOT_MOUNTED:
    case G_IO_ERROR_NOT_FOUND:
      return Situation::notMounted;
    case G_IO_ERROR_PERMISSION_DENIED:
      return Situation::notPermitted;
    case G_IO_ERROR_BUSY:
      _inUse = true;
      return Situation::inUse;
    default:
      return situationBehind(_message);
  }
}

void GvfsMount::_onShowProcesses(GMountOperation* answers, const char* /*message*/,
                                 GArray* /*processes*/, const char** /*choices*/, gpointer self) {
  static_cast<GvfsMount*>(self)->_inUse = true;
  g_mount_operation_reply(answers, G_MOUNT_OPERATION_ABORTED);
}

}  // namespace ravelin::volumes
