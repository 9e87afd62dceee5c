#include "platform/ScriptRunner.h"

#include <string>
#include <vector>

#include "platform/FileManager.h"
#include "platform/SearchPaths.h"
#include "platform/Service.h"
#include "platform/Text.h"
#include "platform/linux/DesktopEntry.h"

namespace ravelin::platform {

namespace {

/// Does to the desktop folder what the scripts' sources say, from their parameters. That nothing
/// outside the folder changes is the file manager's promise.
class LinuxScriptRunner final : public ScriptRunner {
 private:
  bool _execute(const Script& script) override {
    const std::string source = std::visit([](const auto& kind) { return kind.source(); }, script);
    const std::vector<std::string> desktops =
        searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop, SearchPathDomain::user);
    if (source.find('\0') != std::string::npos || desktops.empty()) {
      return false;
    }
    return std::visit([&](const auto& kind) { return _perform(kind, desktops.front()); }, script);
  }

  static bool _perform(const ShortcutScript& script, const std::string& desktop) {
    const std::string label = shown(script.label);
    const DesktopEntry entry{.name = label, .url = script.url()};
    return !service<FileManager>().writeAtomically(desktop + "/" + label + ".app", desktop,
                                                   entry.text());
  }

  static bool _perform(const RemovalScript& script, const std::string& desktop) {
    auto& files = service<FileManager>();
    const std::string path = desktop + "/" + script.fileName;
    // In this order an item that somebody else removes meanwhile is no failure.
    return !files.removeItemAtPath(path, desktop) || !files.fileExistsAtPath(path, desktop);
  }
};

}  // namespace

template <>
ScriptRunner& native<ScriptRunner>() {
  static auto& instance = *new LinuxScriptRunner;
  return instance;
}

}  // namespace ravelin::platform
