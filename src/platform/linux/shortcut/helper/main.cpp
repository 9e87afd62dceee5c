// The agent's short-lived helper for shortcuts: "check FILE" tells by its exit status whether there
// is a readable picture in the file, "set FILE PICTURE" has file managers show the file with it,
// "trash FILE DEVICE INODE" moves what has these numbers to the user's trash.

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gio/gio.h>
#include <glib/gstdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/linux/GioTypes.h"

namespace {

using namespace ravelin;

bool report(GError* error) {
  if (error != nullptr) {
    std::cerr << "ravelin-disk-shortcut-helper: " << error->message << '\n';
    g_error_free(error);
    return false;
  }
  return true;
}

/// From here on this process gets so much more memory and processor time, and no more: the size
/// that a picture states cannot be trusted, and the agent may have ended and no longer kill this.
void boundResources() {
  constexpr rlim_t MEMORY = rlim_t{512} * 1024 * 1024;
  constexpr rlim_t SECONDS = 10;
  rlim_t pages = 0;
  if (std::ifstream("/proc/self/statm") >> pages) {
    const rlim_t bytes = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + MEMORY;
    const rlimit memory{bytes, bytes};
    ::setrlimit(RLIMIT_AS, &memory);
  }
  const rlimit time{SECONDS, SECONDS};
  ::setrlimit(RLIMIT_CPU, &time);
}

bool isPicture(const char* path) {
  boundResources();
  GError* error = nullptr;
  const Owned<GdkPixbuf> picture(gdk_pixbuf_new_from_file(path, &error));
  return report(error) && picture != nullptr;
}

bool setIcon(const char* path, const char* picture) {
  const Owned<GFile> file(g_file_new_for_path(path));
  const Owned<GFile> pictureFile(g_file_new_for_path(picture));
  const String uri(g_file_get_uri(pictureFile.get()));
  GError* error = nullptr;
  g_file_set_attribute_string(file.get(), "metadata::custom-icon", uri.get(),
                              G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, &error);
  return report(error);
}

bool moveToTrash(const char* path, std::string_view device, std::string_view inode) {
  // The path may lead elsewhere by now.
  GStatBuf status{};
  if (g_lstat(path, &status) != 0 || std::to_string(status.st_dev) != device ||
      std::to_string(status.st_ino) != inode) {
    std::cerr << "ravelin-disk-shortcut-helper: The file is no longer there\n";
    return false;
  }
  // Without the services of the session, which may hang.
  const Owned<GFile> file(g_vfs_get_file_for_path(g_vfs_get_local(), path));
  GError* error = nullptr;
  g_file_trash(file.get(), nullptr, &error);
  return report(error);
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view command = count > 1 ? arguments[1] : "";
  if (command == "check" && count == 3) {
    return isPicture(arguments[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (command == "set" && count == 4) {
    return setIcon(arguments[2], arguments[3]) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (command == "trash" && count == 5) {
    return moveToTrash(arguments[2], arguments[3], arguments[4]) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  std::cerr << "usage: ravelin-disk-shortcut-helper check FILE | set FILE PICTURE |\n"
               "       trash FILE DEVICE INODE\n";
  return 2;
}
