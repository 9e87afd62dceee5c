#include "platform/ShortcutScript.h"

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
         shown(label) + ".app\"";
}

std::vector<std::string> ShortcutScript::insertedValues() const {
  return {shown(ipAddress), shown(encodedLabel), shown(label)};
}

std::string ShortcutScript::url() const {
  return "smb://guest:@" + shown(ipAddress) + "/" + shown(encodedLabel);
}

}  // namespace ravelin::platform
