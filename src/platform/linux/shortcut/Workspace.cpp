#include "platform/Workspace.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/FileManager.h"
#include "platform/Image.h"
#include "platform/SearchPaths.h"
#include "platform/Service.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/linux/shortcut/ShortcutHelper.h"

namespace ravelin::platform {

namespace {

/// Larger files are not looked into, and may hold anything.
constexpr std::size_t METADATA_LIMIT = std::size_t{16} * 1024 * 1024;

/// Whether what file managers keep of the user's files may speak of a picture that was in one of
/// the agent's folders: of files that have gone, too, and for as long as it takes to be written
/// anew.
bool mayRememberPicture() {
  // A value is kept as it is, a URI whose escapes change nothing of this part.
  const std::string part = "/" + std::string(SUPPORT_FOLDER_NAME) + "/icon.";
  for (const std::string& data : searchPathsForDirectoriesInDomains(
           SearchPathDirectory::applicationSupport, SearchPathDomain::user)) {
    std::error_code error;
    for (std::filesystem::directory_iterator file(data + "/gvfs-metadata", error), end;
         !error && file != end; file.increment(error)) {
      if (std::error_code ignored; !file->is_regular_file(ignored)) {
        continue;
      }
      const Text content =
          service<FileManager>().contentsAtPath(file->path().string(), METADATA_LIMIT).text;
      if (!content || content->find(part) != std::string::npos) {
        return true;
      }
    }
  }
  return false;
}

/// Writes the icon where desktops look for it: into the shortcut itself, and into the metadata that
/// some file managers keep of files.
class LinuxWorkspace final : public Workspace {
 public:
  bool setIcon(const Image& image, const std::string& forFile, const Text& beneath) override {
    auto& files = service<FileManager>();
    const Text text = files.contentsOfItemAtPath(forFile, beneath).text;
    const Text changed = text ? DesktopEntry::withIcon(*text, image.path()) : std::nullopt;
    return changed && !files.writeShortcutAtPath(forFile, beneath, *changed) &&
           service<ShortcutHelper>().run({"set", forFile, image.path()}).value_or(false);
  }

  void forgetIcon(const std::string& ofFile, const Text& beneath) override {
    if (!mayRememberPicture()) {
      return;
    }
    const Text text = service<FileManager>().contentsOfItemAtPath(ofFile, beneath).text;
    if (text && DesktopEntry::isShortcut(*text)) {
      service<ShortcutHelper>().run({"unset", ofFile});
    }
  }
};

}  // namespace

template <>
Workspace& native<Workspace>() {
  static auto& instance = *new LinuxWorkspace;
  return instance;
}

}  // namespace ravelin::platform
