#include <clocale>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Notification.h"
#include "Share.h"
#include "ShareUrl.h"
#include "Shortcut.h"
#include "Waiting.h"
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

/// Opening one shortcut, and what the user is told of it, on standard error and on the desktop.
class Opening {
 public:
  Opening(const CommandLine& line, std::string path) : _line(line), _path(std::move(path)) {}

  std::optional<Failure> open() {
    const auto found = urlOfShortcut(_path);
    if (const auto* const failure = std::get_if<Failure>(&found)) {
      return *failure;
    }
    const auto& url = std::get<std::string>(found);
    std::string awaited = "the device " + nameInShareUrl(url).server;
    const Waiting waiting([&] { _say("waiting for " + awaited, "is being opened"); });
    if (auto failure = mountShare(url)) {
      return failure;
    }
    awaited = "the file manager";
    if (auto failure = showShare(url)) {
      return failure;
    }
    if (waiting.isTold()) {
      _say("it is open now", "is open");
    }
    return std::nullopt;
  }

  void showFailure(const std::string& why) { _show("cannot be opened", why); }

 private:
  void _say(const std::string& what, const std::string& state) {
    _line.tell(_path + ": " + what);
    _show(state, what);
  }

  void _show(const std::string& state, const std::string& what) {
    _notification.show("“" + nameOf(_path) + "” " + state, visibleLine(what));
  }

  const CommandLine& _line;
  const std::string _path;
  Notification _notification;
};

}  // namespace
}  // namespace ravelin::open

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::open;
  platform::openStandardDescriptors();
  std::setlocale(LC_ALL, "");
  CommandLine line("ravelin-disk-open", {"FILE"}, PURPOSE);
  line.argument("FILE", "the path of the shortcut, or its file:// URI");
  std::optional<Opening> opening;
  std::optional<std::string> why;
  const int status = line.run(count, arguments,
                              [&](const std::vector<std::string>& words) -> std::optional<Failure> {
                                const auto path = pathIn(words);
                                if (const auto* const failure = std::get_if<Failure>(&path)) {
                                  return *failure;
                                }
                                const auto& shortcut = std::get<std::string>(path);
                                const auto failure = opening.emplace(line, shortcut).open();
                                if (!failure) {
                                  return std::nullopt;
                                }
                                why = failure->message;
                                return Failure{failure->status, shortcut + ": " + failure->message};
                              });
  if (why) {
    opening->showFailure(*why);
  }
  return status;
}
