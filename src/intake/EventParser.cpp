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

std::string_view textOf(std::span<const std::byte> payload) {
  return {reinterpret_cast<const char*>(payload.data()), payload.size()};
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

EventParser::Reading EventParser::read(std::span<const std::byte> payload, Disk& disk) {
  std::string_view rest = textOf(payload);
  if (!isAscii(rest)) {
    return {.outcome = Outcome::notAscii, .unknownKey = {}};
  }
  while (true) {
    const std::size_t end = rest.find(';');
    const std::string_view item = rest.substr(0, end);
    if (!takeItem(item, disk)) {
      return {.outcome = Outcome::unknownKey, .unknownKey = item.substr(0, item.find(':'))};
    }
    if (end == std::string_view::npos) {
      return {};
    }
    rest.remove_prefix(end + 1);
  }
}

DiskPtr EventParser::parse(std::span<const std::byte> payload) {
  auto disk = std::make_shared<Disk>();
  if (read(payload, *disk).outcome == Outcome::unknownKey) {
    return nullptr;
  }
  if (disk->eventName() == "disk_mounted" || disk->eventName() == "disk_unmounted") {
    logReceived(textOf(payload), *disk);
  }
  return disk;
}

}  // namespace ravelin
