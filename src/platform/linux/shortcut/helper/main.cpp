// The agent's short-lived helper for shortcuts: "check FILE" tells by its exit status whether there
// is a readable picture in the file, "set FILE PICTURE" has file managers show the file with it,
// "unset FILE" has them show it without one of the agent's pictures, "trash FILE DEVICE INODE"
// moves what has these numbers to the user's trash.

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

#include "platform/SearchPaths.h"
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

constexpr const char* ICON = "metadata::custom-icon";

bool setIcon(const char* path, const char* picture) {
  const Owned<GFile> file(g_file_new_for_path(path));
  const Owned<GFile> pictureFile(g_file_new_for_path(picture));
  const String uri(g_file_get_uri(pictureFile.get()));
  GError* error = nullptr;
  g_file_set_attribute_string(file.get(), ICON, uri.get(), G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS,
                              nullptr, &error);
  return report(error);
}

/// An icon that the user has chosen stays.
bool unsetIcon(const char* path) {
  const Owned<GFile> file(g_file_new_for_path(path));
  GError* error = nullptr;
  const Owned<GFileInfo> info(
      g_file_query_info(file.get(), ICON, G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, &error));
  if (!report(error)) {
    return false;
  }
  const char* const uri = g_file_info_get_attribute_string(info.get(), ICON);
  if (uri == nullptr) {
    return true;
  }
  const Owned<GFile> picture(g_file_new_for_uri(uri));
  const Owned<GFile> folder(g_file_get_parent(picture.get()));
  const String name(g_file_get_basename(picture.get()));
  const String folderName(folder != nullptr ? g_file_get_basename(folder.get()) : nullptr);
  const std::string_view base = name != nullptr ? name.get() : "";
  if ((base != "icon.ico" && base != "icon.icns") || folderName == nullptr ||
      folderName.get() != platform::SUPPORT_FOLDER_NAME) {
    return true;
  }
  g_file_set_attribute(file.get(), ICON, G_FILE_ATTRIBUTE_TYPE_INVALID, nullptr,
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
  if (command == "unset" && count == 3) {
    return unsetIcon(arguments[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (command == "trash" && count == 5) {
    return moveToTrash(arguments[2], arguments[3], arguments[4]) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  std::cerr << "usage: ravelin-disk-shortcut-helper check FILE | set FILE PICTURE | unset FILE |\n"
               "       trash FILE DEVICE INODE\n";
  return 2;
}
