#include "Options.h"

#include <getopt.h>

#include <array>
#include <string_view>
#include <vector>

#include "Printable.h"
#include "common/InQuotes.h"
#include "platform/linux/GioTypes.h"

namespace ravelin::open {

namespace {

constexpr std::string_view USAGE =
    R"(Usage: ravelin-disk-open FILE
Opens a shortcut that Ravelin Disk has put on the desktop: mounts the share as guest, without asking
for a password, and shows it in the file manager.

FILE is the path of the shortcut, or its file:// URI.

  --help     prints this
  --version  prints the version

The exit status is 0 when the share is open, 1 when it could not be opened, and 2 when the arguments
are not right.
)";

constexpr std::string_view VERSION = "ravelin-disk-open " RAVELIN_DISK_VERSION "\n";

constexpr int HELP = 256;  // beyond all characters, which are getopt's other answers
constexpr int SHOW_VERSION = HELP + 1;

Failure misuse(const std::string& argument, std::string_view explanation) {
  return {MISUSED, argument + ": " + std::string(explanation)};
}

std::variant<Options, Information, Failure> conclude(const std::vector<std::string>& arguments) {
  if (arguments.empty()) {
    return misuse("FILE", "missing; see --help");
  }
  if (arguments.size() > 1) {
    return misuse(inQuotes(printable(arguments[1])), "one argument too many; see --help");
  }
  const std::string& file = arguments[0];
  if (file.empty()) {
    return misuse("FILE", "empty");
  }
  // Every other name is a path, also one that looks like a URI of another kind.
  if (!file.starts_with("file://")) {
    return Options{file};
  }
  char* host = nullptr;
  const String path(g_filename_from_uri(file.c_str(), &host, nullptr));
  const String owner(host);
  if (path == nullptr || (host != nullptr && std::string_view(host) != "localhost")) {
    return misuse(inQuotes(printable(file)), "no URI of a file on this computer");
  }
  return Options{path.get()};
}

}  // namespace

std::variant<Options, Information, Failure> parseOptions(int count, char** arguments) {
  static const std::array<option, 3> KNOWN{
      {{"help", no_argument, nullptr, HELP}, {"version", no_argument, nullptr, SHOW_VERSION}, {}}};
  opterr = 0;
  const int code = ::getopt_long(count, arguments, "", KNOWN.data(), nullptr);
  if (code == HELP) {
    return Information{std::string(USAGE)};
  }
  if (code == SHOW_VERSION) {
    return Information{std::string(VERSION)};
  }
  if (code == -1) {
    return conclude({arguments + optind, arguments + count});
  }
  const bool isCharacter = optopt != 0 && optopt < HELP;
  const std::string argument = isCharacter ? std::string{'-', static_cast<char>(optopt)}
                                           : std::string(arguments[optind - 1]);
  return misuse(inQuotes(printable(argument)), "no option; see --help");
}

}  // namespace ravelin::open
