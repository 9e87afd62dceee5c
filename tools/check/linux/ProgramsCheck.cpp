#include "check/linux/ProgramsCheck.h"

#include <unistd.h>

#include <array>
#include <string>

#include "base/Text.h"
#include "platform/ChildProcess.h"
#include "platform/linux/GioTypes.h"
#include "platform/linux/HelperProgram.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/linux/shortcut/ShortcutHelper.h"

namespace ravelin::check {

namespace {

constexpr const char* TYPE = "application/x-ravelin-disk-shortcut";
constexpr const char* HANDLER = "ravelin-disk-open.desktop";

struct Helper {
  const char* name;
  const char* without;
};

constexpr std::array<Helper, 2> HELPERS{
    {{platform::ShortcutHelper::NAME,
      "what has a shortcut's name cannot be moved away, and there are no icons"},
     {"ravelin-disk-volumes-helper", "ravelin-disk-volume cannot mount shares"}}};

Finding checkHelper(const Helper& helper) {
  const std::string name = helper.name;
  std::string path;
  try {
    path = platform::HelperProgram(name).located();
  } catch (const platform::LaunchException& exception) {
    return note("helper-unknown", exception.what(), {{"program", name}});
  }
  const Details details{{"program", name}, {"file", path}};
  if (::access(path.c_str(), X_OK) != 0) {
    return wrong("helper-missing", "the helper " + path + " is missing: " + helper.without,
                 details);
  }
  return ok("helper", "the helper " + path + " is there", details);
}

Finding checkType() {
  const std::string text = platform::DesktopEntry{.name = "Disk", .url = "smb://x/"}.text();
  const String type(g_content_type_guess("Disk.app", reinterpret_cast<const guchar*>(text.data()),
                                         text.size(), nullptr));
  const std::string found = type == nullptr ? "" : type.get();
  if (found != TYPE) {
    return wrong("type-unknown",
                 "the desktop takes a shortcut for " + found + ", as the type " + TYPE +
                     " is not registered: a double click does not open the share",
                 {{"type", found}});
  }
  return ok("type", "the desktop knows the type of shortcuts", {{"type", found}});
}

Finding checkHandler() {
  const Owned<GAppInfo> handler(g_app_info_get_default_for_type(TYPE, FALSE));
  if (handler == nullptr) {
    return wrong("handler-missing",
                 std::string("no program opens shortcuts, as ") + HANDLER +
                     " is not registered, or ravelin-disk-open is not in the PATH: a double click "
                     "does not open the share",
                 {{"type", TYPE}});
  }
  const char* const id = g_app_info_get_id(handler.get());
  const std::string name = id == nullptr ? "" : id;
  if (name != HANDLER) {
    return wrong("handler-other", name + " opens shortcuts, and should be " + HANDLER,
                 {{"handler", name}});
  }
  return ok("handler", name + " opens shortcuts", {{"handler", name}});
}

}  // namespace

Findings checkPrograms() {
  Findings found;
  for (const Helper& helper : HELPERS) {
    found.push_back(checkHelper(helper));
  }
  found.push_back(checkType());
  found.push_back(checkHandler());
  return found;
}

}  // namespace ravelin::check
