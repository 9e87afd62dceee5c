#include <clocale>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Notification.h"
#include "Share.h"
#include "Shortcut.h"
#include "base/Visible.h"
#include "common/CommandLine.h"
#include "common/Failure.h"
#include "common/InQuotes.h"
#include "platform/StandardDescriptors.h"
#include "platform/linux/GioTypes.h"

namespace ravelin::open {
namespace {

constexpr std::string_view PURPOSE =
    R"(Opens a shortcut that Ravelin Disk has put on the desktop: mounts the share as guest, without
asking for a password, and shows it in the file manager. The exit status is 0 when the share is
open, 1 when it could not be opened, and 2 when the arguments are not right.
)";

/// The path of the shortcut that the arguments name.
std::variant<std::string, Failure> pathIn(const std::vector<std::string>& arguments) {
  if (auto failure = failureOfCount(arguments, {"FILE"})) {
    return *failure;
  }
  const std::string& file = arguments[0];
  if (file.empty()) {
    return unwanted("FILE", "the path or URI of a shortcut", file);
  }
  // Every other name is a path, also one that looks like a URI of another kind.
  if (!file.starts_with("file://")) {
    return file;
  }
  char* host = nullptr;
  const String path(g_filename_from_uri(file.c_str(), &host, nullptr));
  const String owner(host);
  if (path == nullptr || (host != nullptr && std::string_view(host) != "localhost")) {
    return misuse(inQuotes(file), "no URI of a file on this computer");
  }
  return path.get();
}

/// What people call the shortcut.
std::string nameOf(const std::string& path) {
  constexpr std::string_view ENDING = ".app";
  const String base(g_path_get_basename(path.c_str()));
  std::string name = base.get();
  if (name.size() > ENDING.size() && name.ends_with(ENDING)) {
    name.resize(name.size() - ENDING.size());
  }
  return visibleLine(name);
}

std::optional<Failure> open(const std::string& path) {
  const auto url = urlOfShortcut(path);
  if (const auto* const failure = std::get_if<Failure>(&url)) {
    return *failure;
  }
  if (auto failure = mountShare(std::get<std::string>(url))) {
    return failure;
  }
  return showShare(std::get<std::string>(url));
}

}  // namespace
}  // namespace ravelin::open

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::open;
  platform::openStandardDescriptors();
  std::setlocale(LC_ALL, "");
  CommandLine line("ravelin-disk-open", {"FILE"}, PURPOSE);
  line.argument("FILE", "the path of the shortcut, or its file:// URI");
  std::string shortcut;
  std::optional<std::string> why;
  const int status = line.run(count, arguments,
                              [&](const std::vector<std::string>& words) -> std::optional<Failure> {
                                const auto path = pathIn(words);
                                if (const auto* const failure = std::get_if<Failure>(&path)) {
                                  return *failure;
                                }
                                shortcut = std::get<std::string>(path);
                                const auto failure = open::open(shortcut);
                                if (!failure) {
                                  return std::nullopt;
                                }
                                why = failure->message;
                                return Failure{failure->status, shortcut + ": " + failure->message};
                              });
  if (why) {
    notify("“" + nameOf(shortcut) + "” cannot be opened", visibleLine(*why));
  }
  return status;
}
