#include "platform/scripts/ShortcutScript.h"

namespace ravelin::platform {

std::string ShortcutScript::source() const {
  return "script myScript\n"
         "tell application \"Finder\"\n"
         "open location \"" +
         url() +
         "\"\n"
         "end tell\n"
         "end script\n"
         "store script myScript in (path to desktop as text) & \"" +
         textOrNull(label) + ".app\"";
}

std::vector<std::string> ShortcutScript::insertedValues() const {
  return {textOrNull(ipAddress), textOrNull(encodedLabel), textOrNull(label)};
}

std::string ShortcutScript::url() const {
  return "smb://guest:@" + textOrNull(ipAddress) + "/" + textOrNull(encodedLabel);
}

}  // namespace ravelin::platform
