#include "platform/SearchPaths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/Text.h"
#include "platform/FileManager.h"
#include "platform/Service.h"

namespace ravelin::platform {

namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr std::string_view DEFAULT_DATA_DIRS = "/usr/local/share:/usr/share";
constexpr std::string_view LOCAL_DATA_DIR = "/usr/local/share";

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

std::string appended(const std::string& folder, std::string_view component) {
  std::string path = folder == "/" ? "" : folder;
  return path.append("/").append(component);
}

/// The path, or null when it is not absolute.
Text absolutePath(const char* value) {
  return value != nullptr && *value == '/' ? Text(withoutTrailingSlashes(value)) : std::nullopt;
}

/// The home folder that the user database knows.
Text registeredHome() {
  constexpr std::size_t ENOUGH_AT_FIRST = 1024;
  constexpr std::size_t ENOUGH_FOR_ANYBODY = std::size_t{1024} * 1024;
  std::string buffer(ENOUGH_AT_FIRST, '\0');
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < ENOUGH_FOR_ANYBODY) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr ? absolutePath(found->pw_dir) : std::nullopt;
}

Text homeFolder() {
  const Text home = absolutePath(std::getenv("HOME"));
  return home ? home : registeredHome();
}

/// The user's folder that the variable names, or else the one at that place in the home folder.
Text baseFolder(const char* variable, std::string_view placeInHome) {
  Text folder = absolutePath(std::getenv(variable));
  if (!folder) {
    folder = homeFolder();
    if (folder) {
      folder = appended(*folder, placeInHome);
    }
  }
  return folder;
}

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
}

bool skip(std::string_view& text, std::string_view prefix) {
  const bool found = text.starts_with(prefix);
  text.remove_prefix(found ? prefix.size() : 0);
  return found;
}

/// The text up to the closing quote, escapes resolved; null when there is no such quote.
Text takeQuoted(std::string_view& text) {
  std::string taken;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] == '"') {
      text.remove_prefix(index + 1);
      return taken;
    }
    if (text[index] == '\\' && index + 1 < text.size()) {
      ++index;
    }
    taken += text[index];
  }
  return std::nullopt;
}

/// The desktop folder that a line assigns; null for a line that does not.
Text desktopFromLine(std::string_view line, const std::string& home) {
  skipBlanks(line);
  if (!skip(line, "XDG_DESKTOP_DIR")) {
    return std::nullopt;
  }
  skipBlanks(line);
  if (!skip(line, "=")) {
    return std::nullopt;
  }
  skipBlanks(line);
  if (!skip(line, "\"")) {
    return std::nullopt;
  }
  const bool inHome = skip(line, "$HOME");
  const bool atEnd = line.starts_with('"');
  if (!line.starts_with('/') && !(inHome && atEnd)) {
    return std::nullopt;
  }
  const Text path = takeQuoted(line);
  skipBlanks(line);
  if (!path || path->find('\0') != std::string::npos || !(line.empty() || line.starts_with('#'))) {
    return std::nullopt;
  }
  return withoutTrailingSlashes(inHome && home != "/" ? home + *path : *path);
}

Text configuredDesktop(const std::string& home) {
  const Text configuration = baseFolder("XDG_CONFIG_HOME", ".config");
  const Text content = configuration
                           ? service<FileManager>()
                                 .contentsAtPath(appended(*configuration, "user-dirs.dirs"),
                                                 FileManager::CONTENT_LIMIT)
                                 .text
                           : std::nullopt;
  std::string_view rest = content ? std::string_view(*content) : std::string_view();
  Text desktop;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    if (Text assigned = desktopFromLine(rest.substr(0, end), home)) {
      desktop = std::move(assigned);
    }
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return desktop;
}

Text desktopFolder() {
  const Text home = homeFolder();
  if (!home) {
    return std::nullopt;
  }
  const Text desktop = configuredDesktop(*home);
  return desktop ? desktop : appended(*home, "Desktop");
}

std::vector<std::string> absoluteEntries(std::string_view list) {
  std::vector<std::string> entries;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(':'), list.size());
    if (const Text entry = absolutePath(std::string(list.substr(0, end)).c_str())) {
      entries.push_back(*entry);
    }
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return entries;
}

bool hasSupportFolder(const std::string& folder) {
  struct stat status{};
  return ::stat(appended(folder, SUPPORT_FOLDER_NAME).c_str(), &status) == 0 &&
         S_ISDIR(status.st_mode);
}

std::vector<std::string> machineWideFolders() {
  const char* const listed = std::getenv("XDG_DATA_DIRS");
  std::vector<std::string> folders = absoluteEntries(listed != nullptr ? listed : "");
  if (folders.empty()) {
    folders = absoluteEntries(DEFAULT_DATA_DIRS);
  }
  const std::size_t local = std::erase(folders, LOCAL_DATA_DIR);
  folders.insert(folders.begin(), local, std::string(LOCAL_DATA_DIR));
  // What a package has put into a folder further down counts until the administrator makes a folder
  // of the same name before it.
  const auto inUse = std::ranges::find_if(folders, hasSupportFolder);
  if (inUse != folders.end()) {
    std::rotate(folders.begin(), inUse, std::next(inUse));
  }
  return folders;
}

std::vector<std::string> listOf(Text folder) {
  return folder ? std::vector{*std::move(folder)} : std::vector<std::string>{};
}

}  // namespace

std::vector<std::string> searchPathsForDirectoriesInDomains(SearchPathDirectory directory,
                                                            SearchPathDomain domain) {
  const bool ofUser = domain == SearchPathDomain::user;
  if (directory == SearchPathDirectory::desktop && ofUser) {
    return listOf(desktopFolder());
  }
  if (directory == SearchPathDirectory::applicationSupport && ofUser) {
    return listOf(baseFolder("XDG_DATA_HOME", ".local/share"));
  }
  if (directory == SearchPathDirectory::applicationSupport && domain == SearchPathDomain::local) {
    return machineWideFolders();
  }
  return {};
}

}  // namespace ravelin::platform
