#include "intake/EventParser.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "core/Logger.h"

namespace ravelin {

namespace {

struct Key {
  std::string_view name;
  std::optional<std::string_view> Disk::TextViews::* text;
};

constexpr std::array<Key, 5> KEYS = {{{"event", &Disk::TextViews::eventName},
                                      {"mac", &Disk::TextViews::macAddress},
                                      {"ip", &Disk::TextViews::ipAddress},
                                      {"uuid", &Disk::TextViews::uuid},
                                      {"label", &Disk::TextViews::label}}};

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
bool takeItem(std::string_view item, Disk::TextViews& texts) {
  const std::size_t colon = item.find(':');
  if (colon == std::string_view::npos) {
    return true;
  }
  const std::string_view name = item.substr(0, colon);
  const auto* key = std::ranges::find(KEYS, name, &Key::name);
  if (key == KEYS.end()) {
    return false;
  }
  texts.*key->text = item.substr(colon + 1);
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

EventParser::Reading EventParser::read(std::span<const std::byte> payload, Disk::TextViews& texts) {
  std::string_view rest = textOf(payload);
  if (!isAscii(rest)) {
    return {.outcome = Outcome::notAscii, .unknownKey = {}};
  }
  while (true) {
    const std::size_t end = rest.find(';');
    const std::string_view item = rest.substr(0, end);
    if (!takeItem(item, texts)) {
      return {.outcome = Outcome::unknownKey, .unknownKey = item.substr(0, item.find(':'))};
    }
    if (end == std::string_view::npos) {
      return {};
    }
    rest.remove_prefix(end + 1);
  }
}

DiskPtr EventParser::parse(std::span<const std::byte> payload) {
  Disk::TextViews texts;
  if (read(payload, texts).outcome == Outcome::unknownKey) {
    return nullptr;
  }
  auto disk = std::make_shared<Disk>(texts);
  if (texts.eventName == "disk_mounted" || texts.eventName == "disk_unmounted") {
    logReceived(textOf(payload), *disk);
  }
  return disk;
}

}  // namespace ravelin
