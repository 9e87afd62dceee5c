#include "OptionReader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "base/InternetAddress.h"

namespace ravelin::announce {

namespace {

constexpr std::string_view PURPOSE =
    R"(Plays a network device: announces its disk in a UDP datagram. With the sample configuration, these
reach the agents of the local network and the one on this computer:

  ravelin-disk-announce mounted 239.255.77.1 5077
  ravelin-disk-announce mounted 127.0.0.1 5077
)";

constexpr const char* ANNOUNCEABLE = "7-bit ASCII without ';', as nothing else can be announced";
constexpr const char* SERVER = "an IPv4 address, as nothing else opens (--raw sends any text)";
constexpr const char* POSITIVE = "a whole number from 1 to 1000000";

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

bool isAnnounceable(const std::string& value) {
  return std::ranges::all_of(value, [](char character) {
    return character != ';' && static_cast<unsigned char>(character) < 0x80;
  });
}

std::optional<Key> keyOf(std::string_view name) {
  const auto* const key =
      std::ranges::find_if(KEYS, [&](Key candidate) { return nameOf(candidate) == name; });
  return key == KEYS.end() ? std::nullopt : std::optional(*key);
}

}  // namespace

OptionReader::OptionReader()
    : _line("ravelin-disk-announce",
            {"[options] EVENT HOST PORT", "[options] --raw TEXT HOST PORT"}, PURPOSE) {
  _line.argument("EVENT", "mounted, status, unmounted or no-disk");
  _line.argument("HOST", "an IPv4 address of a host or a multicast group, or a name that has one");
  _line.argument("PORT", "from 1 to 65535");
  _addContent();
  _line.heading("How often");
  _line.option("--every", "SECONDS", "again and again, until interrupted",
               "a number of seconds from 0.001 to 1000000",
               [this](const std::string& value) { return readDuration(value, _options.every); });
  _line.option("--pace", "N", "at most N datagrams per second (default 200)", POSITIVE,
               [this](const std::string& value) {
                 return readNumber(value, 1U, 1'000'000U, _options.perSecond);
               });
  _line.heading("Which way, to a multicast group");
  _line.option("--interface", "INTERFACE", "leaves by the interface with this name or IPv4 address",
               "an interface", [this](const std::string& value) {
                 _options.interface = value;
                 return true;
               });
  _line.option("--ttl", "N", "time to live, 0 to 255 (default 1)", "a whole number from 0 to 255",
               [this](const std::string& value) {
                 return readNumber<std::uint8_t>(value, 0, 255, _options.timeToLive.emplace());
               });
  _line.heading("What is printed");
  _line.flag("--quiet", "does not print what is sent", _options.quiet);
}

void OptionReader::_addContent() {
  _line.heading("What is announced");
  _addValue(Key::mac, "ADDRESS", "the device (default 02:00:00:00:00:01)", ANNOUNCEABLE,
            isAnnounceable);
  _addValue(Key::ip, "ADDRESS",
            "its SMB server, an IPv4 address (default: the one the datagram leaves from)", SERVER,
            isDottedAddress);
  _addValue(Key::uuid, "UUID", "the disk (default 1234-ABCD)", ANNOUNCEABLE, isAnnounceable);
  _addValue(Key::label, "LABEL", "the disk's label, also the name of its share (default USBDISK)",
            ANNOUNCEABLE, isAnnounceable);
  _line.option("--disks", "N", "N disks, with -1 to -N behind uuid and label", POSITIVE,
               [this](const std::string& value) {
                 _composing = "--disks";
                 return readNumber(value, 1U, 1'000'000U, _options.disks.emplace());
               });
  _line.option("--omit", "KEY", "leaves out event, mac, ip, uuid or label; may be repeated",
               "event, mac, ip, uuid or label", [this](const std::string& value) {
                 _composing = "--omit";
                 const auto key = keyOf(value);
                 _omitted.push_back(key.value_or(Key::event));
                 return key.has_value();
               });
  _line.option("--raw", "TEXT", "this text as it is, instead of an EVENT", "a text",
               [this](const std::string& value) {
                 _raw = value;
                 return true;
               });
}

void OptionReader::_addValue(Key key, const std::string& value, const std::string& description,
                             const std::string& wanted, bool (*isWanted)(const std::string&)) {
  const std::string name = std::string("--").append(nameOf(key));
  _line.option(name, value, description, wanted,
               [this, key, name, isWanted](const std::string& given) {
                 _composing = name;
                 _given.emplace_back(key, given);
                 return isWanted(given);
               });
}

std::variant<Options, Failure> OptionReader::options(const std::vector<std::string>& arguments) {
  std::vector<std::string> names{"EVENT", "HOST", "PORT"};
  if (_raw) {
    names.erase(names.begin());
    if (!_composing.empty()) {
      return misuse("--raw", "cannot go together with " + _composing);
    }
  }
  if (const auto failure = failureOfCount(arguments, names)) {
    return *failure;
  }
  _options.host = arguments[arguments.size() - 2];
  if (!readNumber<std::uint16_t>(arguments.back(), 1, 65535, _options.port)) {
    return unwanted("PORT", "a whole number from 1 to 65535", arguments.back());
  }
  if (_raw) {
    _options.content = *_raw;
    return _options;
  }
  auto announcement = Announcement::forEvent(arguments.front());
  if (!announcement) {
    return unwanted("EVENT", "mounted, status, unmounted or no-disk", arguments.front());
  }
  for (const auto& [key, value] : _given) {
    announcement->give(key, value);
  }
  for (const Key key : _omitted) {
    announcement->omit(key);
  }
  if (_options.disks && announcement->text("-1") == announcement->text("")) {
    return misuse("--disks", "needs a uuid or a label to number, and none is announced");
  }
  _options.content = *announcement;
  return _options;
}

}  // namespace ravelin::announce
