#include "intake/EventParser.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/Logger.h"

namespace ravelin {

namespace {

struct Key {
  std::string_view name;
  void (Disk::*set)(Text);
};

constexpr std::array<Key, 5> KEYS = {{{"event", &Disk::setEventName},
                                      {"mac", &Disk::setMacAddress},
                                      {"ip", &Disk::setIpAddress},
                                      {"uuid", &Disk::setUuid},
                                      {"label", &Disk::setLabel}}};

bool isAscii(std::string_view text) {
  unsigned char all = 0;
  for (const char character : text) {
    all |= static_cast<unsigned char>(character);
  }
  return all < 0x80;
}

/// False when the item has a key that is none of the five.
bool takeItem(std::string_view item, Disk& disk) {
  const std::size_t colon = item.find(':');
  if (colon == std::string_view::npos) {
    return true;
  }
  const std::string_view name = item.substr(0, colon);
  const auto* key = std::find_if(KEYS.begin(), KEYS.end(),
                                 [name](const Key& candidate) { return candidate.name == name; });
  if (key == KEYS.end()) {
    return false;
  }
  (disk.*key->set)(std::string(item.substr(colon + 1)));
  return true;
}

void logReceived(std::string_view text, const Disk& disk) {
  Logger::logMessage("Received event message\n" + std::string(text) + "\nDisk is\nevent:" +
                         shown(disk.eventName()) + ";mac:" + shown(disk.macAddress()) +
                         ";ip:" + shown(disk.ipAddress()) + ";uuid:" + shown(disk.uuid()) +
                         ";label:" + shown(disk.label()) + ";",
                     LogTypeInfo);
}

}  // namespace

DiskPtr EventParser::parse(std::span<const std::byte> payload) {
  auto disk = std::make_shared<Disk>();
  const std::string_view text(reinterpret_cast<const char*>(payload.data()), payload.size());
  if (!isAscii(text)) {
    return disk;
  }
  std::string_view rest = text;
  while (true) {
    const std::size_t end = rest.find(';');
    if (!takeItem(rest.substr(0, end), *disk)) {
      return nullptr;
    }
    if (end == std::string_view::npos) {
      break;
    }
    rest.remove_prefix(end + 1);
  }
  if (disk->eventName() == "disk_mounted" || disk->eventName() == "disk_unmounted") {
    logReceived(text, *disk);
  }
  return disk;
}

}  // namespace ravelin
