// The short-lived helper for volumes: "mount URL" mounts a share by GVfs as guest and prints where
// its files are, "unmount PATH" unmounts what is mounted there. It ends with a VolumeSituation.

#include <clocale>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "GvfsMount.h"

namespace {

using ravelin::platform::VolumeSituation;
using ravelin::volumes::GvfsMount;

/// The output is read by a program, and GLib's warnings are not part of the answer.
GLogWriterOutput keepQuiet(GLogLevelFlags /*level*/, const GLogField* /*fields*/, gsize /*count*/,
                           gpointer /*data*/) {
  return G_LOG_WRITER_HANDLED;
}

VolumeSituation report(VolumeSituation situation, const GvfsMount& mount) {
  if (situation == VolumeSituation::done) {
    std::cout << mount.mountPoint() << std::flush;
  } else {
    std::cerr << "ravelin-disk-volumes-helper: " << mount.message() << '\n';
  }
  return situation;
}

}  // namespace

int main(int count, char** arguments) {
  std::setlocale(LC_ALL, "");
  g_log_set_writer_func(keepQuiet, nullptr, nullptr);
  const std::string_view command = count == 3 ? arguments[1] : "";
  if (command == "mount") {
    GvfsMount mount(arguments[2]);
    return static_cast<int>(report(mount.mount(), mount));
  }
  if (command == "unmount") {
    GvfsMount mount(arguments[2]);
    return static_cast<int>(report(mount.unmount(), mount));
  }
  std::cerr << "usage: ravelin-disk-volumes-helper mount URL | unmount PATH\n";
  return 2;
}
