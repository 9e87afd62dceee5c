#include "controller/Admission.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ravelin {

namespace {

std::string dotted(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text.append(std::to_string(address >> shift & 0xFFU)).append(shift == 0 ? "" : ".");
  }
  return text;
}

}  // namespace

std::string Admission::reasonOf(Limit limit) {
  switch (limit) {
    case Limit::knownDisksOfSender:
      return std::to_string(KNOWN_DISKS_OF_SENDER) +
             " of its disks are known, and no sender may have more";
    case Limit::knownDisks:
      return std::to_string(KNOWN_DISKS) + " disks are known, and there may not be more";
    case Limit::waitingEventsOfSender:
      return std::to_string(WAITING_EVENTS_OF_SENDER) +
             " of its announcements wait, and no sender may have more waiting";
    case Limit::waitingEvents:
      return std::to_string(WAITING_EVENTS) + " announcements wait, and there may not be more";
    case Limit::textOfSender:
      return "the texts of its announcements would be longer than the " +
             std::to_string(TEXT_OF_SENDER) + " bytes that a sender may have";
    case Limit::text:
      return "the texts of all announcements would be longer than " + std::to_string(TEXT) +
             " bytes";
  }
  return "";
}

std::optional<Admission::Limit> Admission::admit(const DiskPtr& event) {
  const Text& uuid = event->uuid();
  const bool becomesKnown = uuid && _wouldMount(*event) && !_charged.contains(TextKey(*uuid));
  auto limit = _limitOfWaiting(*event);
  if (!limit && becomesKnown) {
    limit = _limitOfKnown(event->sender());
  }
  if (!limit) {
    _waiting.enqueue(event);
    if (becomesKnown) {
      _charge(*event);
    }
  }
  return limit;
}

DiskPtr Admission::next() {
  for (;;) {
    if (_inHand) {
      _discharge(*_inHand);
    }
    _inHand = _waiting.dequeue();
    if (!_inHand || !_wouldMount(*_inHand)) {
      return _inHand;
    }
    const Text& uuid = _inHand->uuid();
    const auto charged = uuid ? _charged.find(TextKey(*uuid)) : _charged.end();
    const Disk* const other = charged == _charged.end() ? nullptr : charged->second;
    if (other == _inHand.get()) {
      return _inHand;
    }
    // The disk was known, or was being announced, when this came, and is not mounted any more.
    if (other != nullptr) {
      _discharge(*other);
    }
    if (!_limitOfKnown(_inHand->sender())) {
      _charge(*_inHand);
      return _inHand;
    }
    if (other != nullptr) {
      _charge(*other);
    }
  }
}

void Admission::queueWasReplaced() {
  const bool inHandWasCharged = _inHand && _isCharged(*_inHand);
  _charged.clear();
  _chargedOfSender.clear();
  if (inHandWasCharged) {
    _charge(*_inHand);
  }
  for (const DiskPtr& event : _waiting.elements()) {
    if (_wouldMount(*event) && !_charged.contains(TextKey(*event->uuid()))) {
      _charge(*event);
    }
  }
}

bool Admission::isKnownOrGoingToBe(const Disk& disk) const {
  return disk.uuid() && (_known.find(disk) != nullptr || _charged.contains(TextKey(*disk.uuid())));
}

bool Admission::_wouldMount(const Disk& event) const {
  const Text& name = event.eventName();
  return (name == "disk_mounted" || name == "disk_status") && event.uuid() &&
         _known.find(event) == nullptr;
}

bool Admission::_isHandOnly() const { return _inHand && _known.find(*_inHand) != _inHand; }

std::optional<Admission::Limit> Admission::_limitOfKnown(std::uint32_t sender) const {
  std::size_t all = _known.count() + _charged.size();
  const auto charged = _chargedOfSender.find(sender);
  std::size_t ofSender =
      _known.tally().of(sender).disks + (charged == _chargedOfSender.end() ? 0 : charged->second);
  // A disk that has just been mounted is on the list and still charged: it counts only once.
  if (_inHand && !_isHandOnly()) {
    --all;
    ofSender -= _inHand->sender() == sender ? 1U : 0U;
  }
  if (ofSender >= KNOWN_DISKS_OF_SENDER) {
    return Limit::knownDisksOfSender;
  }
  return all >= KNOWN_DISKS ? std::optional(Limit::knownDisks) : std::nullopt;
}

std::optional<Admission::Limit> Admission::_limitOfWaiting(const Disk& event) const {
  const std::uint32_t sender = event.sender();
  const SenderTally::Share ofSender = _waiting.tally().of(sender);
  if (ofSender.disks >= WAITING_EVENTS_OF_SENDER) {
    return Limit::waitingEventsOfSender;
  }
  if (_waiting.count() >= WAITING_EVENTS) {
    return Limit::waitingEvents;
  }
  const std::size_t inHand = _isHandOnly() ? _inHand->textSize() : 0;
  const bool inHandIsOfSender = _inHand && _inHand->sender() == sender;
  if (ofSender.text + _known.tally().of(sender).text + (inHandIsOfSender ? inHand : 0) +
          event.textSize() >
      TEXT_OF_SENDER) {
    return Limit::textOfSender;
  }
  if (_waiting.tally().all().text + _known.tally().all().text + inHand + event.textSize() > TEXT) {
    return Limit::text;
  }
  return std::nullopt;
}

void Admission::_charge(const Disk& event) {
  if (const Text& uuid = event.uuid()) {
    _charged.emplace(TextKey(*uuid), &event);
    ++_chargedOfSender[event.sender()];
  }
}

bool Admission::_isCharged(const Disk& event) const {
  const Text& uuid = event.uuid();
  const auto charged = uuid ? _charged.find(TextKey(*uuid)) : _charged.end();
  return charged != _charged.end() && charged->second == &event;
}

void Admission::_discharge(const Disk& event) {
  if (!_isCharged(event)) {
    return;
  }
  _charged.erase(TextKey(*event.uuid()));
  const auto ofSender = _chargedOfSender.find(event.sender());
  if (--ofSender->second == 0) {
    _chargedOfSender.erase(ofSender);
  }
}

Text Admission::lineAbout(std::uint32_t sender, Limit limit, Time now) {
  const auto isWithinInterval = [&](const std::optional<Time>& time) {
    return time && now - *time < LINE_INTERVAL;
  };
  const auto remembered = _dropped.find(sender);
  const bool begins = remembered == _dropped.end() || !isWithinInterval(remembered->second);
  if (remembered != _dropped.end()) {
    remembered->second = now;
  } else {
    if (_dropped.size() >= REMEMBERED_SENDERS) {
      _dropped.erase(
          std::ranges::min_element(_dropped, {}, [](const auto& entry) { return entry.second; }));
    }
    _dropped.emplace(sender, now);
  }
  if (!begins) {
    return std::nullopt;
  }
  const std::string reason = dotted(sender) + " are dropped: " + reasonOf(limit);
  if (!isWithinInterval(_lineAboutOne)) {
    _lineAboutOne = now;
    _senderInLine = sender;
    return "Announcements from " + reason;
  }
  if (sender != _senderInLine && !isWithinInterval(_lineAboutOthers)) {
    _lineAboutOthers = now;
    return "Announcements of further senders are dropped, too; those from " + reason;
  }
  return std::nullopt;
}

}  // namespace ravelin
