#include "platform/scripts/ScriptRunner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/Text.h"
#include "platform/FileManager.h"
#include "platform/SearchPaths.h"
#include "platform/Service.h"
#include "platform/linux/LinuxFolderAccess.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/posix/BeneathResolver.h"

namespace ravelin::platform {

namespace {

/// Does to the desktop folder what the scripts' sources say, from their parameters. That nothing
/// outside the folder changes is the file manager's promise.
class LinuxScriptRunner final : public ScriptRunner {
 private:
  bool _execute(const Script& script) override {
    return std::visit(
        [](const auto& kind) {
          const bool holdsNul = std::ranges::any_of(kind.insertedValues(), [](const auto& value) {
            return value.find('\0') != std::string::npos;
          });
          const Text desktop = holdsNul ? std::nullopt : _desktopFor(kind);
          return desktop && _perform(kind, *desktop);
        },
        script);
  }

  static Text _desktopFor(const ShortcutScript& script) {
    return script.desktop ? script.desktop : _desktop();
  }
  static Text _desktopFor(const RemovalScript& /*script*/) { return _desktop(); }
  static Text _desktopFor(const AliasScript& /*script*/) { return _desktop(); }

  static Text _desktop() {
    const auto found =
        searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop, SearchPathDomain::user);
    return found.empty() ? std::nullopt : Text(found.front());
  }

  static bool _perform(const ShortcutScript& script, const std::string& desktop) {
    const std::string label = textOrNull(script.label);
    const DesktopEntry entry{.name = label, .url = script.url()};
    return !service<FileManager>().writeShortcutAtPath(desktop + "/" + label + ".app", desktop,
                                                       entry.text());
  }

  static bool _perform(const RemovalScript& script, const std::string& desktop) {
    auto& files = service<FileManager>();
    const std::string path = desktop + "/" + script.fileName;
    // In this order an item that somebody else removes meanwhile is no failure.
    return !files.removeShortcutAtPath(path, desktop) || !files.itemExistsAtPath(path, desktop);
  }

  static bool _perform(const AliasScript& script, const std::string& desktop) {
    return _link(script, desktop, Target::volume) || _link(script, desktop, Target::path);
  }

  enum class Target {
    volume,  ///< must be there and answer
    path,    ///< must not be known to be missing, but its server may be silent just now
  };

  static bool _link(const AliasScript& script, const std::string& desktop, Target target) {
    const std::string name = textOrNull(script.aliasName);
    const std::string path = textOrNull(script.volumePath);
    const std::string item = desktop + "/" + name;
    const LinuxFolderAccess access;
    const auto place = BeneathResolver(access).resolve(item, desktop);
    return place.error == 0 && !service<FileManager>().makeWayAtPath(item, desktop) &&
           _leadsToA(target, path) &&
           ::symlinkat(path.c_str(), place.folder.number(), place.name.c_str()) == 0;
  }

  static bool _leadsToA(Target target, const std::string& path) {
    if (!path.starts_with('/')) {
      return false;
    }
    struct stat status{};
    const bool answers = ::stat(path.c_str(), &status) == 0;
    return answers || (target == Target::path && errno != ENOENT && errno != ENOTDIR &&
                       errno != ENAMETOOLONG && errno != ELOOP);
  }
};

}  // namespace

template <>
ScriptRunner& native<ScriptRunner>() {
  static auto& instance = *new LinuxScriptRunner;
  return instance;
}

}  // namespace ravelin::platform
