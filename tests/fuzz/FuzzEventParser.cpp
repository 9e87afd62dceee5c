#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/PlainAnnouncement.h"
#include "fuzz/QuietLog.h"
#include "fuzz/Require.h"
#include "intake/Completeness.h"
#include "intake/EventParser.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace {

using ravelin::Disk;
using ravelin::DiskPtr;
using ravelin::EventParser;
using ravelin::Lack;
using ravelin::lackOf;
using ravelin::Text;
using ravelin::fuzz::require;
using ravelin::fuzz::valueOf;
using ravelin::fuzz::Values;

/// The reading that writes nothing: the same texts, and where it stops.
void checkReading(std::span<const std::byte> payload, const std::optional<Values>& expected) {
  Disk::TextViews texts;
  const EventParser::Reading reading = EventParser::read(payload, texts);
  const std::string_view message(reinterpret_cast<const char*>(payload.data()), payload.size());
  if (!expected) {
    require(reading.outcome == EventParser::Outcome::unknownKey);
    // It is a key that stands there, and none before it is unknown.
    const auto at = static_cast<std::size_t>(reading.unknownKey.data() - message.data());
    require(message.substr(at + reading.unknownKey.size()).starts_with(':'));
    require(at == 0 || message[at - 1] == ';');
    require(ravelin::fuzz::readPlainly(std::string(message.substr(0, at))).has_value());
    require(!ravelin::fuzz::readPlainly(std::string(message.substr(at))).has_value());
    return;
  }
  const bool isAscii = std::ranges::all_of(
      payload, [](std::byte byte) { return std::to_integer<unsigned>(byte) < 0x80; });
  require(reading.outcome ==
          (isAscii ? EventParser::Outcome::read : EventParser::Outcome::notAscii));
  require(texts.eventName == valueOf(*expected, "event"));
  require(texts.macAddress == valueOf(*expected, "mac"));
  require(texts.ipAddress == valueOf(*expected, "ip"));
  require(texts.uuid == valueOf(*expected, "uuid"));
  require(texts.label == valueOf(*expected, "label"));
}

void checkCompleteness(const Disk& disk, const Values& values) {
  static const std::map<std::string, Lack> LACKS{
      {"uuid", Lack::uuid}, {"mac", Lack::mac}, {"ip", Lack::ip}, {"label", Lack::label}};
  const Text missing = ravelin::fuzz::missingIn(values);
  if (!missing) {
    require(!lackOf(disk));
  } else if (missing == "event") {
    require(lackOf(disk) == (values.contains("event") ? Lack::knownEvent : Lack::event));
  } else {
    require(lackOf(disk) == LACKS.at(*missing));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string message(data, data + size);
  const auto payload = std::as_bytes(std::span(data, size));
  ravelin::fuzz::QuietLog log;
  const ravelin::platform::Substitute<ravelin::platform::SystemLog> inForce(log);
  const DiskPtr disk = EventParser::parse(payload);
  const std::optional<Values> expected = ravelin::fuzz::readPlainly(message);
  require((disk != nullptr) == expected.has_value());
  require(log.lines == ravelin::fuzz::linesOf(message, expected));
  checkReading(payload, expected);
  if (!expected) {
    return 0;
  }
  require(disk->eventName() == valueOf(*expected, "event"));
  require(disk->macAddress() == valueOf(*expected, "mac"));
  require(disk->ipAddress() == valueOf(*expected, "ip"));
  require(disk->uuid() == valueOf(*expected, "uuid"));
  require(disk->label() == valueOf(*expected, "label"));
  require(disk->volumeReference() == 0 && !disk->lastUpdateTime() && disk->sender() == 0);
  checkCompleteness(*disk, *expected);
  return 0;
}
