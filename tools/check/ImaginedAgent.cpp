#include "ImaginedAgent.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "GroupAddress.h"
#include "base/PercentEscaping.h"
#include "common/InQuotes.h"
#include "core/Constants.h"
#include "intake/Completeness.h"
#include "intake/EventParser.h"
#include "platform/scripts/ScriptRunner.h"

namespace ravelin::check {

using Kind = Verdict::Kind;

namespace {

constexpr std::string_view SUFFIX = ".app";
/// How many bytes a name of a file may have.
constexpr std::size_t NAME_LIMIT = 255;

/// Runs nothing, but takes just those scripts that a runner takes.
class Rehearsal final : public platform::ScriptRunner {
 private:
  bool _execute(const platform::Script& script) override {
    return std::visit([](const auto& kind) { return kind.source(); }, script).find('\0') ==
           std::string::npos;
  }
};

Verdict passedOver(std::string code, std::string sentence) {
  return {.kind = Kind::nothing, .code = std::move(code), .sentence = std::move(sentence)};
}

Verdict lacking(const std::string& key) {
  return passedOver("missing-" + key, inQuotes(key) + " is missing: the announcement is void");
}

Verdict verdictOn(Lack lack, const Disk& announced) {
  switch (lack) {
    case Lack::event:
      return lacking("event");
    case Lack::mac:
      return lacking("mac");
    case Lack::ip:
      return lacking("ip");
    case Lack::uuid:
      return lacking("uuid");
    case Lack::label:
      return lacking("label");
    case Lack::knownEvent:
      return passedOver("unknown-event", "there is no event " +
                                             inQuotes(textOrNull(announced.eventName())) +
                                             ": the announcement is void");
  }
  return {};
}

/// Counted from 1.
std::size_t placeBeyondAscii(std::span<const std::byte> payload) {
  constexpr std::byte HIGH_BIT{0x80};
  const auto found = std::ranges::find_if(
      payload, [](std::byte byte) { return (byte & HIGH_BIT) != std::byte{}; });
  return static_cast<std::size_t>(found - payload.begin()) + 1;
}

/// Why no shortcut can be made; null where one can.
Text obstacleTo(const Disk& announced) {
  const std::string label = textOrNull(announced.label());
  if (label.size() + SUFFIX.size() > NAME_LIMIT) {
    return "the label has " + std::to_string(label.size()) +
           " bytes, and the name of a file takes " + std::to_string(NAME_LIMIT - SUFFIX.size()) +
           " of them at the most";
  }
  Rehearsal rehearsal;
  if (!rehearsal.run(platform::ShortcutScript{announced.ipAddress(), addingPercentEscapes(label),
                                              announced.label()})) {
    return "neither 'ip' nor 'label' may hold a double quote, a backslash or a zero byte";
  }
  if (label.find('/') != std::string::npos) {
    return "the label holds a slash, unless the desktop has the folder before it";
  }
  return std::nullopt;
}

}  // namespace

ImaginedAgent::Judgement ImaginedAgent::take(std::span<const std::byte> payload,
                                             std::uint32_t sender) {
  Disk::TextViews texts;
  const auto reading = EventParser::read(payload, texts);
  const auto announced = std::make_shared<Disk>(texts);
  announced->setSender(sender);
  Verdict verdict = _verdictOnReading(payload, reading, *announced);
  if (verdict.kind != Kind::nothing) {
    // Before the announcement itself waits.
    verdict = _verdictOnComplete(*announced);
    if (_waiting.containsReceiverEqualTo(*announced)) {
      verdict =
          passedOver("waiting-already", "waiting already: the same has just come, and counts once");
    } else if (const auto limit = _admission.admit(announced)) {
      verdict =
          passedOver("limit", "dropped, as if it had been lost: " + Admission::reasonOf(*limit));
    }
  }
  return {.announced = announced, .verdict = std::move(verdict)};
}

Verdict ImaginedAgent::_verdictOnReading(std::span<const std::byte> payload,
                                         const EventParser::Reading& reading,
                                         const Disk& announced) {
  using Outcome = EventParser::Outcome;
  if (reading.outcome == Outcome::notAscii) {
    return passedOver("not-ascii", "not ASCII at byte " +
                                       std::to_string(placeBeyondAscii(payload)) +
                                       ": the whole announcement is void");
  }
  if (reading.outcome == Outcome::unknownKey) {
    return passedOver("unknown-key", "key " + inQuotes(reading.unknownKey) +
                                         " is unknown: the whole announcement is void");
  }
  const auto lack = lackOf(announced);
  return lack ? verdictOn(*lack, announced) : Verdict();
}

Verdict ImaginedAgent::_verdictOnComplete(const Disk& announced) const {
  const Text& event = announced.eventName();
  if (event == "disk_unmounted" || event == "no_disk") {
    return _verdictOnRemoval(announced);
  }
  if (_admission.isKnownOrGoingToBe(announced)) {
    return {.kind = Kind::complete,
            .code = "known",
            .sentence = "complete; known already by its uuid: the shortcut stays as it is"};
  }
  return _verdictOnNew(announced);
}

Verdict ImaginedAgent::_verdictOnNew(const Disk& announced) const {
  if (const Text obstacle = obstacleTo(announced)) {
    return {.kind = Kind::idle,
            .code = "no-shortcut",
            .sentence = "complete, but no shortcut can be made: " + *obstacle};
  }
  const std::string shortcut =
      "makes the shortcut " + inQuotes(textOrNull(announced.label()).append(SUFFIX));
  if (addressReadFrom(announced.ipAddress()) != announced.ipAddress()) {
    return {.kind = Kind::idle,
            .code = "does-not-open",
            .sentence = "complete; " + shortcut + ", but it does not open: 'ip' is " +
                        inQuotes(textOrNull(announced.ipAddress())) + ", and no IPv4 address"};
  }
  return {.kind = Kind::complete, .code = "complete", .sentence = "complete; " + shortcut};
}

Verdict ImaginedAgent::_verdictOnRemoval(const Disk& announced) const {
  const bool isOfDevice = announced.eventName() == "no_disk";
  const bool isKnown = isOfDevice ? !_known.ofDevice(announced.macAddress()).empty()
                                  : _admission.isKnownOrGoingToBe(announced);
  if (isKnown) {
    return {.kind = Kind::complete,
            .code = "removes",
            .sentence = std::string("complete; removes ") +
                        (isOfDevice ? "all shortcuts of the device" : "the shortcut of the disk")};
  }
  return {.kind = Kind::idle,
          .code = "not-known",
          .sentence = std::string("complete; nothing to remove, as no disk ") +
                      (isOfDevice ? "of the device" : "of this uuid") + " is known"};
}

void ImaginedAgent::handleWaiting(Disk::Date now) {
  while (const DiskPtr event = _admission.next()) {
    _handle(event, now);
  }
}

void ImaginedAgent::_handle(const DiskPtr& event, Disk::Date now) {
  const Text& name = event->eventName();
  const DiskPtr known = _known.find(*event);
  if (name == "no_disk") {
    for (const DiskPtr& disk : _known.ofDevice(event->macAddress())) {
      _known.remove(*disk);
    }
  } else if (name == "disk_unmounted") {
    if (known) {
      _known.remove(*known);
    }
  } else if (known) {
    known->setLastUpdateTime(now);
  } else {
    event->setLastUpdateTime(now);
    _known.append(event);
  }
}

void ImaginedAgent::forgetSilent(Disk::Date now) {
  for (const DiskPtr& disk : _known.copy()) {
    const std::chrono::duration<double> silence = now - disk->lastUpdateTime().value_or(now);
    if (silence.count() > DISK_EXPECTED_UPDATE_TIME_INTERVAL) {
      _known.remove(*disk);
    }
  }
}

}  // namespace ravelin::check
