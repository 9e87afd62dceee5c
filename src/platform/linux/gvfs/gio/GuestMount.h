#pragma once

#include "GioOperation.h"
#include "platform/linux/GioTypes.h"

namespace ravelin::gvfs {

/// One place that GVfs mounts as guest, without a question to the user: the first request for
/// a password gets the reply that this is an anonymous user. A second one means that the server
/// refuses the guest; it aborts the mount, and so does any other question. Main thread.
class GuestMount {
 public:
  /// The operation waits for the mount; once it has been given up, a password is not told any more.
  /// Both outlive this.
  GuestMount(GFile* place, GioOperation& operation);
  ~GuestMount();
  GuestMount(const GuestMount&) = delete;
  GuestMount& operator=(const GuestMount&) = delete;

  /// Has GVfs begin; the operation is then to be awaited. GVfs cannot be stopped: a cancellable
  /// only stops the waiting for it, and what has been given up may be mounted later all the same.
  void start(GCancellable* cancellable);

  /// Why the place is not mounted, from what the operation has brought; null when it is mounted.
  Error finish(GAsyncResult* result);

  /// Whether the password was asked for again.
  [[nodiscard]] bool isGuestRefused() const { return _timesAsked > 1; }

  /// What is given to GVfs for its questions.
  [[nodiscard]] GMountOperation* answers() const { return _answers.get(); }

 private:
  static void _onAskPassword(GMountOperation* answers, const char* message, const char* user,
                             const char* domain, GAskPasswordFlags flags, gpointer self);
  static void _onAskQuestion(GMountOperation* answers, const char* message, const char** choices,
                             gpointer self);

  GFile* const _place;
  GioOperation& _operation;
  Owned<GMountOperation> _answers{g_mount_operation_new()};
  int _timesAsked = 0;
};

}  // namespace ravelin::gvfs
