#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "disk/Disk.h"

namespace ravelin::test {

/// The five texts of a disk, as a test writes them down.
struct Texts {
  Text event = std::nullopt;
  Text mac = std::nullopt;
  Text ip = std::nullopt;
  Text uuid = std::nullopt;
  Text label = std::nullopt;
  bool operator==(const Texts&) const = default;
};

inline DiskPtr makeDisk(Texts texts) {
  auto disk = std::make_shared<Disk>();
  disk->setEventName(std::move(texts.event));
  disk->setMacAddress(std::move(texts.mac));
  disk->setIpAddress(std::move(texts.ip));
  disk->setUuid(std::move(texts.uuid));
  disk->setLabel(std::move(texts.label));
  return disk;
}

inline Texts textsOf(const Disk& disk) {
  return {.event = disk.eventName(),
          .mac = disk.macAddress(),
          .ip = disk.ipAddress(),
          .uuid = disk.uuid(),
          .label = disk.label()};
}

/// The datagram that a device sends for these texts.
inline std::string datagram(const Texts& texts) {
  std::string message;
  const auto add = [&message](std::string_view key, const Text& value) {
    if (value) {
      message.append(message.empty() ? "" : ";").append(key).append(":").append(*value);
    }
  };
  add("event", texts.event);
  add("mac", texts.mac);
  add("ip", texts.ip);
  add("uuid", texts.uuid);
  add("label", texts.label);
  return message;
}

/// What the log says when an announcement of a mounted or unmounted disk arrives.
inline std::string receivedLine(std::string_view message, const Texts& texts) {
  return "Received event message\n" + std::string(message) +
         "\nDisk is\nevent:" + textOrNull(texts.event) + ";mac:" + textOrNull(texts.mac) +
         ";ip:" + textOrNull(texts.ip) + ";uuid:" + textOrNull(texts.uuid) +
         ";label:" + textOrNull(texts.label) + ";";
}

inline std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

}  // namespace ravelin::test
