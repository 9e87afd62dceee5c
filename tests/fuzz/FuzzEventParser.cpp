#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "intake/EventParser.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace {

using ravelin::DiskPtr;
using ravelin::EventParser;
using ravelin::Text;
using ravelin::textOrNull;
using ravelin::platform::SystemLog;

/// Keeps the lines to itself.
class QuietLog final : public SystemLog {
 public:
  std::size_t log(Level level, std::string_view messageTemplate) override {
    require(level == Level::info);
    lines.emplace_back(messageTemplate);
    return 0;
  }

  static void require(bool holds) {
    if (!holds) {
      std::abort();
    }
  }

  std::vector<std::string> lines;
};

using Values = std::map<std::string, std::string>;

std::vector<std::string> itemsOf(const std::string& message) {
  std::vector<std::string> items(1);
  for (const char character : message) {
    if (character == ';') {
      items.emplace_back();
    } else {
      items.back() += character;
    }
  }
  return items;
}

/// What a message says, read letter by letter; null when it is to have no record.
std::optional<Values> readPlainly(const std::string& message) {
  for (const char character : message) {
    if (static_cast<unsigned char>(character) > 127) {
      return Values();
    }
  }
  Values values;
  for (const std::string& item : itemsOf(message)) {
    std::string key;
    std::string value;
    bool behindColon = false;
    for (const char character : item) {
      if (behindColon) {
        value += character;
      } else if (character == ':') {
        behindColon = true;
      } else {
        key += character;
      }
    }
    if (!behindColon) {
      continue;
    }
    if (key != "event" && key != "mac" && key != "ip" && key != "uuid" && key != "label") {
      return std::nullopt;
    }
    values[key] = value;
  }
  return values;
}

Text valueOf(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? std::nullopt : Text(found->second);
}

std::vector<std::string> expectedLines(const std::string& message, const Values& values) {
  const Text event = valueOf(values, "event");
  if (event != "disk_mounted" && event != "disk_unmounted") {
    return {};
  }
  std::string line = "Received event message\n" + message + "\nDisk is\n";
  for (const char* key : {"event", "mac", "ip", "uuid", "label"}) {
    line += std::string(key) + ":" + textOrNull(valueOf(values, key)) + ";";
  }
  return {line};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string message(data, data + size);
  QuietLog log;
  const ravelin::platform::Substitute<SystemLog> inForce(log);
  const DiskPtr disk = EventParser::parse(std::as_bytes(std::span(data, size)));
  const std::optional<Values> expected = readPlainly(message);
  QuietLog::require((disk != nullptr) == expected.has_value());
  if (!expected) {
    QuietLog::require(log.lines.empty());
    return 0;
  }
  QuietLog::require(disk->eventName() == valueOf(*expected, "event"));
  QuietLog::require(disk->macAddress() == valueOf(*expected, "mac"));
  QuietLog::require(disk->ipAddress() == valueOf(*expected, "ip"));
  QuietLog::require(disk->uuid() == valueOf(*expected, "uuid"));
  QuietLog::require(disk->label() == valueOf(*expected, "label"));
  QuietLog::require(disk->volumeReference() == 0 && !disk->lastUpdateTime());
  QuietLog::require(log.lines == expectedLines(message, *expected));
  return 0;
}
