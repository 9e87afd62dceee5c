#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Text.h"
#include "fuzz/QuietLog.h"

namespace ravelin::fuzz {

/// What an announcement says, by key.
using Values = std::map<std::string, std::string>;

inline std::vector<std::string> itemsOf(const std::string& message) {
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
inline std::optional<Values> readPlainly(const std::string& message) {
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

inline Text valueOf(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? std::nullopt : Text(found->second);
}

/// What the log says when the message arrives.
inline std::vector<QuietLog::Line> linesOf(const std::string& message,
                                           const std::optional<Values>& values) {
  const Text event = values ? valueOf(*values, "event") : std::nullopt;
  if (event != "disk_mounted" && event != "disk_unmounted") {
    return {};
  }
  std::string line = "Received event message\n" + message + "\nDisk is\n";
  for (const char* key : {"event", "mac", "ip", "uuid", "label"}) {
    line += std::string(key) + ":" + textOrNull(valueOf(*values, key)) + ";";
  }
  return {{.level = platform::SystemLog::Level::info, .text = line}};
}

/// The first key, of those that such an event needs, that is missing; "event" where the event
/// itself is missing or is none that is acted upon; null when the announcement is complete.
inline Text missingIn(const Values& values) {
  static const std::map<std::string, std::vector<std::string>> NEEDED{
      {"disk_mounted", {"uuid", "mac", "ip", "label"}},
      {"disk_status", {"uuid", "mac", "ip", "label"}},
      {"disk_unmounted", {"mac", "uuid"}},
      {"no_disk", {"mac"}},
  };
  const auto event = values.find("event");
  const auto needed = event == values.end() ? NEEDED.end() : NEEDED.find(event->second);
  if (needed == NEEDED.end()) {
    return "event";
  }
  for (const std::string& key : needed->second) {
    if (!values.contains(key)) {
      return key;
    }
  }
  return std::nullopt;
}

}  // namespace ravelin::fuzz
