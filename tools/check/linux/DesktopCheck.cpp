#include "check/linux/DesktopCheck.h"

#include <unistd.h>

#include <cstddef>
#include <string>

#include "base/Text.h"
#include "core/DirectoryFinder.h"
#include "platform/FileManager.h"
#include "platform/Service.h"
#include "platform/linux/shortcut/DesktopEntry.h"

namespace ravelin::check {

Findings checkDesktop(bool agentIsRunning) {
  const Text desktop = DirectoryFinder::desktopDirectory();
  if (!desktop) {
    return {wrong("no-desktop", "this user has no home, and so no desktop folder")};
  }
  const Details details{{"folder", *desktop}};
  auto& files = platform::service<platform::FileManager>();
  if (!files.fileExistsAtPath(*desktop)) {
    return {wrong("desktop-missing",
                  "the desktop folder " + *desktop +
                      " is not there, and the agent does not make it: no shortcut can be made",
                  details)};
  }
  const platform::DesktopEntry entry{.name = "ravelin-disk-check",
                                     .url = "smb://guest:@192.0.2.1/"};
  const std::string trial =
      *desktop + "/.ravelin-disk-check-" + std::to_string(::getpid()) + ".app";
  auto error = files.writeShortcutAtPath(trial, desktop, entry.text());
  if (!error) {
    error = files.removeShortcutAtPath(trial, desktop);
  }
  if (error) {
    return {wrong("desktop-not-writable",
                  "no shortcut can be made in the desktop folder " + *desktop + ": " +
                      error->localizedDescription,
                  details)};
  }
  Findings found{ok("desktop", "shortcuts can be made in the desktop folder " + *desktop, details)};
  const std::size_t left = agentIsRunning ? 0 : files.shortcutsBeneath(*desktop).names.size();
  if (left > 0) {
    found.push_back(
        note("shortcuts-left",
             std::to_string(left) + (left == 1 ? " shortcut is" : " shortcuts are") +
                 " there of an agent that was killed; ravelin-disk-tidy removes what is "
                 "left",
             details));
  }
  return found;
}

}  // namespace ravelin::check
