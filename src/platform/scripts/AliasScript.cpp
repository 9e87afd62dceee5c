#include "platform/scripts/AliasScript.h"

#include <string_view>

namespace ravelin::platform {

namespace {

std::string attempt(std::string_view target, const std::string& name, const std::string& path) {
  return "tell application \"Finder\"\n"
         "if exists myFile then\n"
         "delete myFile\n"
         "end if\n"
         "if not (exists myFile) then\n"
         "set aliasFile to make new alias file at desktop to " +
         std::string(target) + " \"" + path +
         "\"\n"
         "set the name of aliasFile to \"" +
         name +
         "\"\n"
         "end if\n"
         "end tell\n";
}

}  // namespace

std::string AliasScript::source() const {
  const std::string name = textOrNull(aliasName);
  const std::string path = textOrNull(volumePath);
  return "try\n"
         "set desktopFolder to (path to desktop folder as Unicode text)\n"
         "set myFile to desktopFolder & \"" +
         name + "\"\n" + attempt("alias POSIX file", name, path) +
         "on error errMsg number errNum\n" + attempt("POSIX file", name, path) + "end try";
}

std::vector<std::string> AliasScript::insertedValues() const {
  return {textOrNull(aliasName), textOrNull(volumePath)};
}

}  // namespace ravelin::platform
