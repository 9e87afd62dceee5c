#include "Options.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Visible.h"
#include "common/InQuotes.h"

namespace ravelin::announce {

namespace {

constexpr std::string_view USAGE =
    R"(Usage: ravelin-disk-announce [options] EVENT HOST PORT
       ravelin-disk-announce [options] --raw TEXT HOST PORT
Plays a network device: announces its disk in a UDP datagram.

EVENT is mounted, status, unmounted or no-disk; HOST an IPv4 address, of one host or of a multicast
group, or a name that has one.

What is announced:
  --mac ADDRESS          the device (default 02:00:00:00:00:01)
  --ip ADDRESS           its SMB server (default: the address the datagram leaves from)
  --uuid UUID            the disk (default 1234-ABCD)
  --label LABEL          the disk's label, also the name of its share (default USBDISK)
  --disks N              N disks, with -1 to -N behind uuid and label
  --omit KEY             leaves out event, mac, ip, uuid or label; may be repeated
  --raw TEXT             this text as it is, instead of an EVENT
How often:
  --every SECONDS        again and again, until interrupted
  --pace N               at most N datagrams per second (default 200)
Which way, to a multicast group:
  --interface INTERFACE  leaves by the interface with this name or IPv4 address
  --ttl N                time to live, 0 to 255 (default 1)
Other:
  --quiet                does not print what is sent
  --help                 prints this
  --version              prints the version
)";

constexpr std::string_view VERSION = "ravelin-disk-announce " RAVELIN_DISK_VERSION "\n";

/// All that the options say, before it is known whether it fits together.
struct Collected {
  Options options;
  std::vector<std::pair<Key, std::string>> given;
  std::vector<Key> omitted;
  std::optional<std::string> raw;
  std::string_view composing;  ///< an option that makes sense for composed texts alone
};

template <class Number>
bool readNumber(const std::string& text, Number lowest, Number highest, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number >= lowest && number <= highest;
}

bool readDuration(const std::string& text, std::optional<std::chrono::nanoseconds>& duration) {
  constexpr double SHORTEST = 0.001;
  constexpr double LONGEST = 1'000'000;
  // strtod alone would also take blanks, signs, exponents, hexadecimal digits and names.
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) {
    return false;
  }
  char* rest = nullptr;
  const std::chrono::duration<double> seconds(std::strtod(text.c_str(), &rest));
  if (*rest != '\0' || seconds.count() < SHORTEST || seconds.count() > LONGEST) {
    return false;
  }
  duration = std::chrono::duration_cast<std::chrono::nanoseconds>(seconds);
  return true;
}

template <Key KEY>
bool takeValue(Collected& collected, const std::string& value) {
  collected.given.emplace_back(KEY, value);
  return std::ranges::all_of(value, [](char character) {
    return character != ';' && static_cast<unsigned char>(character) < 0x80;
  });
}

bool takeOmittedKey(Collected& collected, const std::string& value) {
  const auto* const key =
      std::ranges::find_if(KEYS, [&](Key candidate) { return nameOf(candidate) == value; });
  if (key == KEYS.end()) {
    return false;
  }
  collected.omitted.push_back(*key);
  return true;
}

struct Choice {
  const char* name;
  /// What its value must be; absent if it has none.
  std::optional<std::string_view> wanted;
  bool composing;
  /// Keeps the value; false if it is not what is wanted.
  bool (*take)(Collected& collected, const std::string& value);
};

constexpr std::string_view ANNOUNCEABLE =
    "7-bit ASCII without ';', as nothing else can be announced";

constexpr std::array CHOICES{
    Choice{"mac", ANNOUNCEABLE, true, takeValue<Key::mac>},
    Choice{"ip", ANNOUNCEABLE, true, takeValue<Key::ip>},
    Choice{"uuid", ANNOUNCEABLE, true, takeValue<Key::uuid>},
    Choice{"label", ANNOUNCEABLE, true, takeValue<Key::label>},
    Choice{"disks", "a whole number from 1 to 1000000", true,
           [](Collected& collected, const std::string& value) {
             return readNumber(value, 1U, 1'000'000U, collected.options.disks.emplace());
           }},
    Choice{"omit", "event, mac, ip, uuid or label", true, takeOmittedKey},
    Choice{"raw", "a text", false,
           [](Collected& collected, const std::string& value) {
             collected.raw = value;
             return true;
           }},
    Choice{"every", "a number of seconds from 0.001 to 1000000", false,
           [](Collected& collected, const std::string& value) {
             return readDuration(value, collected.options.every);
           }},
    Choice{"pace", "a whole number from 1 to 1000000", false,
           [](Collected& collected, const std::string& value) {
             return readNumber(value, 1U, 1'000'000U, collected.options.perSecond);
           }},
    Choice{"interface", "an interface", false,
           [](Collected& collected, const std::string& value) {
             collected.options.interface = value;
             return true;
           }},
    Choice{"ttl", "a whole number from 0 to 255", false,
           [](Collected& collected, const std::string& value) {
             return readNumber<std::uint8_t>(value, 0, 255, collected.options.timeToLive.emplace());
           }},
    Choice{"quiet", std::nullopt, false,
           [](Collected& collected, const std::string&) {
             collected.options.quiet = true;
             return true;
           }},
};

constexpr int FIRST_CHOICE = 256;  // beyond all characters, which are getopt's other answers
constexpr int HELP = FIRST_CHOICE + static_cast<int>(CHOICES.size());
constexpr int SHOW_VERSION = HELP + 1;

std::string optionName(int code) {
  const auto index = static_cast<std::size_t>(code - FIRST_CHOICE);
  return std::string("--") + (code == HELP           ? "help"
                              : code == SHOW_VERSION ? "version"
                                                     : CHOICES.at(index).name);
}

Failure misuse(const std::string& argument, std::string_view explanation) {
  return {MISUSED, argument + ": " + std::string(explanation)};
}

Failure unwanted(const std::string& argument, std::string_view wanted, std::string_view value) {
  return misuse(argument, "wanted " + std::string(wanted) + ", not '" + visible(value) + "'");
}

/// Puts together what the options say, and the arguments that are left.
std::variant<Options, Information, Failure> conclude(Collected& collected,
                                                     const std::vector<std::string>& arguments) {
  std::vector<std::string> names{"EVENT", "HOST", "PORT"};
  if (collected.raw) {
    names.erase(names.begin());
    if (!collected.composing.empty()) {
      return misuse("--raw", "cannot go together with --" + std::string(collected.composing));
    }
  }
  if (arguments.size() < names.size()) {
    return misuse(names[arguments.size()], "missing; see --help");
  }
  if (arguments.size() > names.size()) {
    return misuse(inQuotes(visible(arguments[names.size()])), "one argument too many; see --help");
  }
  Options& options = collected.options;
  options.host = arguments[arguments.size() - 2];
  if (!readNumber<std::uint16_t>(arguments.back(), 1, 65535, options.port)) {
    return unwanted("PORT", "a whole number from 1 to 65535", arguments.back());
  }
  if (collected.raw) {
    options.content = *collected.raw;
    return options;
  }
  auto announcement = Announcement::forEvent(arguments.front());
  if (!announcement) {
    return unwanted("EVENT", "mounted, status, unmounted or no-disk", arguments.front());
  }
  for (const auto& [key, value] : collected.given) {
    announcement->give(key, value);
  }
  for (const Key key : collected.omitted) {
    announcement->omit(key);
  }
  if (options.disks && announcement->text("-1") == announcement->text("")) {
    return misuse("--disks", "needs a uuid or a label to number, and none is announced");
  }
  options.content = *announcement;
  return options;
}

}  // namespace

std::variant<Options, Information, Failure> parseOptions(int count, char** arguments) {
  std::vector<option> known;
  known.reserve(CHOICES.size() + 3);
  for (const Choice& choice : CHOICES) {
    known.push_back({choice.name, choice.wanted ? required_argument : no_argument, nullptr,
                     FIRST_CHOICE + static_cast<int>(known.size())});
  }
  known.push_back({"help", no_argument, nullptr, HELP});
  known.push_back({"version", no_argument, nullptr, SHOW_VERSION});
  known.push_back({});

  Collected collected;
  opterr = 0;
  int code = 0;
  while ((code = ::getopt_long(count, arguments, ":", known.data(), nullptr)) != -1) {
    if (code == HELP) {
      return Information{std::string(USAGE)};
    }
    if (code == SHOW_VERSION) {
      return Information{std::string(VERSION)};
    }
    if (code == ':') {
      return misuse(optionName(optopt), "needs a value behind it");
    }
    if (code < FIRST_CHOICE) {
      if (optopt >= FIRST_CHOICE) {
        return misuse(optionName(optopt), "takes no value");
      }
      const std::string argument = optopt == 0 ? std::string(arguments[optind - 1])
                                               : std::string{'-', static_cast<char>(optopt)};
      return misuse(inQuotes(visible(argument)), "no option, or short for several; see --help");
    }
    const Choice& choice = CHOICES.at(static_cast<std::size_t>(code - FIRST_CHOICE));
    const std::string value = choice.wanted ? optarg : "";
    if (!choice.take(collected, value)) {
      return unwanted(optionName(code), choice.wanted.value_or(""), value);
    }
    if (choice.composing) {
      collected.composing = choice.name;
    }
  }
  return conclude(collected, {arguments + optind, arguments + count});
}

}  // namespace ravelin::announce
