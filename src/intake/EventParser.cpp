#include "intake/EventParser.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

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
  constexpr std::uint64_t HIGH_BITS = 0x8080808080808080U;
  std::uint64_t all = 0;
  for (; text.size() >= sizeof all; text.remove_prefix(sizeof all)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    all |= word;
  }
  for (const char character : text) {
    all |= static_cast<unsigned char>(character);
  }
  return (all & HIGH_BITS) == 0;
}

/// False when the item has a key that is none of the five.
bool takeItem(std::string_view item, Disk& disk) {
  const std::size_t colon = item.find(':');
  if (colon == std::string_view::npos) {
    return true;
  }
  const std::string_view name = item.substr(0, colon);
  const auto* key = std::ranges::find(KEYS, name, &Key::name);
  if (key == KEYS.end()) {
    return false;
  }
  (disk.*key->set)(Text(std::in_place, item.substr(colon + 1)));
  return true;
}

void logReceived(std::string_view text, const Disk& disk) {
  Logger::logPeerMessage(
      "Received event message\n" + std::string(text) +
          "\nDisk is\nevent:" + textOrNull(disk.eventName()) +
          ";mac:" + textOrNull(disk.macAddress()) + ";ip:" + textOrNull(disk.ipAddress()) +
          ";uuid:" + textOrNull(disk.uuid()) + ";label:" + textOrNull(disk.label()) + ";",
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
