#include "platform/Workspace.h"

#include "platform/FileManager.h"
#include "platform/Image.h"
#include "platform/Service.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/linux/shortcut/ShortcutHelper.h"

namespace ravelin::platform {

namespace {

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
};

}  // namespace

template <>
Workspace& native<Workspace>() {
  static auto& instance = *new LinuxWorkspace;
  return instance;
}

}  // namespace ravelin::platform
