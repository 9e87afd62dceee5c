#include "platform/scripts/ScriptRunner.h"

#import <Foundation/Foundation.h>

#include <string>

#include "base/Precondition.h"
#include "platform/RunLoop.h"
#include "platform/SearchPaths.h"
#include "platform/macos/FoundationText.h"
#include "platform/macos/MacShortcuts.h"
#include "platform/posix/BeneathResolver.h"
#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {

namespace {

/// A colon separates the folders of a script's path, so that one in a name would lead out of the
/// desktop folder, and a slash becomes another character there.
bool namesAnItemOfTheDesktop(const std::string& name) {
  return name.find_first_of(":/") == std::string::npos;
}

/// Whether the source ran without error. A NUL would end it for some who read it, and for others
/// not.
bool runSource(const std::string& source) {
  NSString* const text = stringOf(source);
  if (text == nil || source.find('\0') != std::string::npos) {
    return false;
  }
  NSAppleScript* const script = [[NSAppleScript alloc] initWithSource:text];
  NSDictionary* error = nil;
  const bool hasRun = [script executeAndReturnError:&error] != nil;
  [script release];
  return hasRun;
}

class MacScriptRunner final : public ScriptRunner {
 private:
  bool _execute(const Script& script) override {
    precondition(RunLoop::main().isCurrent(), "ScriptRunner::run", "the thread is the main thread");
    @autoreleasepool {
      return std::visit([this](const auto& kind) { return _run(kind); }, script);
    }
  }

  /// Has the shortcut stored and marks it. Where something is there already, the script would ask
  /// the user whether to replace it, or replace it: it does not run.
  bool _run(const ShortcutScript& script) {
    const std::string name = textOrNull(script.label) + ".app";
    const auto desktops =
        searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop, SearchPathDomain::user);
    if (!namesAnItemOfTheDesktop(name) || desktops.empty()) {
      return false;
    }
    const auto place =
        BeneathResolver(_access).resolve(desktops.front() + "/" + name, desktops.front());
    const int folder = place.folder.number();
    if (place.error != 0 || _access.find(folder, name).error != ENOENT ||
        !runSource(script.source())) {
      return false;
    }
    if (_shortcuts.mark(folder, name) == 0) {
      return true;
    }
    // Nobody would know it for ours, and remove it.
    static_cast<void>(_shortcuts.remove(folder, name));
    return false;
  }

  bool _run(const RemovalScript& script) {
    return namesAnItemOfTheDesktop(script.fileName) && runSource(script.source());
  }

  bool _run(const AliasScript& script) {
    return namesAnItemOfTheDesktop(textOrNull(script.aliasName)) && runSource(script.source());
  }

  const StepwiseAccess _access;
  const MacShortcuts _shortcuts{_access};
};

}  // namespace

template <>
ScriptRunner& native<ScriptRunner>() {
  static auto& instance = *new MacScriptRunner;
  return instance;
}

}  // namespace ravelin::platform
