#include "Options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "common/InQuotes.h"

namespace ravelin::volume {

namespace {

constexpr std::string_view USAGE =
    R"(Usage: ravelin-disk-volume mount|unmount|where|try|alias SERVER SHARE
Mounts the share of a network device as guest, as the agent would.

  mount    mounts the share, unless it is mounted, and prints where its files are
  unmount  takes the share off the system
  where    prints where the files of the mounted share are
  try      mounts the share by command, as root, and unmounts it again
  alias    puts a link to the mounted share on the desktop, and prints its path

SERVER is the IPv4 address of the device, SHARE the label of its disk.

  --help     prints this
  --version  prints the version
)";

constexpr std::string_view VERSION = "ravelin-disk-volume " RAVELIN_DISK_VERSION "\n";

/// Codes that no character has.
enum Code : int { HELP = 256, SHOW_VERSION };

struct Choice {
  std::string_view name;
  Command command;
};

constexpr std::array CHOICES{
    Choice{"mount", Command::mount}, Choice{"unmount", Command::unmount},
    Choice{"where", Command::where}, Choice{"try", Command::trial},
    Choice{"alias", Command::alias},
};

Failure misuse(const std::string& argument, std::string_view explanation) {
  return {MISUSED, argument + ": " + std::string(explanation)};
}

Failure unwanted(const std::string& argument, std::string_view wanted, std::string_view value) {
  return misuse(argument, "wanted " + std::string(wanted) + ", not '" + std::string(value) + "'");
}

bool isAddress(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool isShareName(const std::string& text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    return character >= ' ' && character <= '~' && character != '/';
  });
}

std::variant<Options, Information, Failure> conclude(const std::vector<std::string>& arguments) {
  static const std::array<std::string, 3> NAMES{"COMMAND", "SERVER", "SHARE"};
  if (arguments.size() < NAMES.size()) {
    return misuse(NAMES.at(arguments.size()), "missing; see --help");
  }
  if (arguments.size() > NAMES.size()) {
    return misuse(inQuotes(arguments[NAMES.size()]), "one argument too many; see --help");
  }
  const auto* const choice = std::ranges::find(CHOICES, arguments[0], &Choice::name);
  if (choice == CHOICES.end()) {
    return unwanted("COMMAND", "mount, unmount, where, try or alias", arguments[0]);
  }
  if (!isAddress(arguments[1])) {
    return unwanted("SERVER", "an IPv4 address", arguments[1]);
  }
  if (!isShareName(arguments[2])) {
    return unwanted("SHARE", "the printable ASCII name of a share", arguments[2]);
  }
  return Options{.command = choice->command, .server = arguments[1], .share = arguments[2]};
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
  // Of several characters in one argument, the one that is no option is told; arguments that begin
  // with two hyphens are told whole.
  const bool isCharacter = optopt != 0 && optopt < HELP;
  const bool isPrintable = isCharacter && optopt > ' ' && optopt <= '~';
  const std::string character{'-', isPrintable ? static_cast<char>(optopt) : '?'};
  return misuse(inQuotes(isCharacter ? character : std::string(arguments[optind - 1])),
                "no option; see --help");
}

}  // namespace ravelin::volume
