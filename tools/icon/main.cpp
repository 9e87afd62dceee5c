// The agent's short-lived helper for pictures: "check FILE" tells by its exit status whether there
// is a readable picture in the file, "set FILE PICTURE" has file managers show the file with it.

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gio/gio.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string_view>

namespace {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
struct Free {
  void operator()(char* text) const { g_free(text); }
};

using Object = std::unique_ptr<void, Unref>;
using String = std::unique_ptr<char, Free>;

bool report(GError* error) {
  if (error != nullptr) {
    std::cerr << "ravelin-disk-icon: " << error->message << '\n';
    g_error_free(error);
    return false;
  }
  return true;
}

bool isPicture(const char* path) {
  GError* error = nullptr;
  const Object picture(gdk_pixbuf_new_from_file(path, &error));
  return report(error) && picture != nullptr;
}

bool setIcon(const char* path, const char* picture) {
  const Object file(g_file_new_for_path(path));
  const Object pictureFile(g_file_new_for_path(picture));
  const String uri(g_file_get_uri(G_FILE(pictureFile.get())));
  GError* error = nullptr;
  g_file_set_attribute_string(G_FILE(file.get()), "metadata::custom-icon", uri.get(),
                              G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, &error);
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
  std::cerr << "usage: ravelin-disk-icon check FILE | set FILE PICTURE\n";
  return 2;
}
