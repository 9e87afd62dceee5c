// The short-lived helper for volumes: "mount URL" mounts a share by GVfs as guest and prints where
// its files are, "unmount PATH" unmounts what is mounted there. It ends with a VolumeSituation;
// about a failure it prints what GVfs has said. Standard error is not part of the result.

#include <glib-unix.h>

#include <clocale>
#include <iostream>
#include <string_view>

#include "Front.h"
#include "GvfsMount.h"

namespace {

using ravelin::platform::VolumeSituation;
using ravelin::volumes::Answer;
using ravelin::volumes::conclude;
using ravelin::volumes::Connection;
using ravelin::volumes::GvfsMount;
using ravelin::volumes::runInBackground;

/// Gives the mount up when the front does not wait for it any more.
class GiveUpWithFront {
 public:
  GiveUpWithFront(const Connection& front, GvfsMount& mount)
      : _source(g_unix_fd_add(front.descriptor(), G_IO_IN, _onGone, &mount)) {}
  ~GiveUpWithFront() { g_source_remove(_source); }
  GiveUpWithFront(const GiveUpWithFront&) = delete;
  GiveUpWithFront& operator=(const GiveUpWithFront&) = delete;

 private:
  static gboolean _onGone(gint /*descriptor*/, GIOCondition /*condition*/, gpointer mount) {
    static_cast<GvfsMount*>(mount)->giveUp();
    return G_SOURCE_CONTINUE;
  }

  const guint _source;
};

/// The output is read by a program, and GLib's warnings are not part of the answer.
GLogWriterOutput keepQuiet(GLogLevelFlags /*level*/, const GLogField* /*fields*/, gsize /*count*/,
                           gpointer /*data*/) {
  return G_LOG_WRITER_HANDLED;
}

Answer answerOf(VolumeSituation situation, const GvfsMount& mount) {
  return {.situation = situation,
          .text = situation == VolumeSituation::done ? mount.mountPoint() : mount.message()};
}

/// Mounts for the front; undoes the mount when the front does not wait any more.
void mountFor(const Connection& front, const char* url) {
  GvfsMount mount(url);
  const Answer answer = [&] {
    const GiveUpWithFront watch(front, mount);
    return answerOf(mount.mount(), mount);
  }();
  if (!front.deliver(answer) || answer.situation != VolumeSituation::done) {
    mount.undo();
  }
}

}  // namespace

int main(int count, char** arguments) {
  std::setlocale(LC_ALL, "");
  g_log_set_writer_func(keepQuiet, nullptr, nullptr);
  const std::string_view command = count == 3 ? arguments[1] : "";
  if (command == "mount") {
    return runInBackground([&](const Connection& front) { mountFor(front, arguments[2]); });
  }
  if (command == "unmount") {
    GvfsMount mount(arguments[2]);
    return conclude(answerOf(mount.unmount(), mount));
  }
  std::cerr << "usage: ravelin-disk-volumes-helper mount URL | unmount PATH\n";
  return 2;
}
