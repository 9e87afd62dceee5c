#include "platform/scripts/RemovalScript.h"

namespace ravelin::platform {

std::string RemovalScript::source() const {
  return "set desktopFolder to (path to desktop folder as Unicode text)\n"
         "set myFile to desktopFolder & \"" +
         fileName +
         "\"\n"
         "tell application \"Finder\"\n"
         "if exists myFile then\n"
         "delete myFile\n"
         "end if\n"
         "end tell";
}

std::vector<std::string> RemovalScript::insertedValues() const { return {fileName}; }

}  // namespace ravelin::platform
