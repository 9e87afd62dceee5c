#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/Text.h"
#include "fuzz/PlainAnnouncement.h"

namespace ravelin::fuzz {

/// An announcement that is complete.
struct Announced {
  std::uint32_t sender = 0;
  std::string event;
  std::string mac;
  Text ip;
  Text uuid;
  Text label;

  Announced(std::uint32_t from, const Values& values)
      : sender(from),
        event(values.at("event")),
        mac(values.at("mac")),
        ip(valueOf(values, "ip")),
        uuid(valueOf(values, "uuid")),
        label(valueOf(values, "label")) {}

  [[nodiscard]] bool mounts() const { return event == "disk_mounted" || event == "disk_status"; }

  [[nodiscard]] std::size_t size() const {
    const auto sizeOf = [](const Text& text) { return text ? text->size() : 0; };
    return event.size() + mac.size() + sizeOf(ip) + sizeOf(uuid) + sizeOf(label);
  }

  /// What this one does not say matches everything.
  [[nodiscard]] bool isRepeatedBy(const Announced& other) const {
    const auto matches = [](const Text& mine, const Text& theirs) {
      return !mine || mine == theirs;
    };
    return event == other.event && mac == other.mac && matches(ip, other.ip) &&
           matches(uuid, other.uuid) && matches(label, other.label);
  }
};

using AnnouncedPtr = std::shared_ptr<const Announced>;

/// What becomes of announcements, by plain lists and by counting them: which ones wait, in which
/// order they are handled, which disks are known, which are dropped, and what is said about that.
class PlainIntake {
 public:
  enum class Verdict { waits, repeats, dropped };
  struct Outcome {
    Verdict verdict = Verdict::waits;
    Text line = std::nullopt;  // in the log
  };

  Outcome arrives(const AnnouncedPtr& event, std::int64_t now) {
    for (const Text& uuid : {event->uuid, Text()}) {
      for (const AnnouncedPtr& waits : _alike[{event->event, event->mac, uuid}]) {
        if (waits->isRepeatedBy(*event)) {
          return {.verdict = Verdict::repeats};
        }
      }
    }
    const bool charges = event->mounts() && !_isKnown(*event) && !_charged.contains(*event->uuid);
    Text reason = _reasonNotToWait(*event);
    if (!reason && charges) {
      reason = _reasonNotToMount(event->sender);
    }
    if (reason) {
      return {.verdict = Verdict::dropped, .line = _lineAbout(event->sender, *reason, now)};
    }
    _waits(event);
    if (charges) {
      _charge(event);
    }
    return {};
  }

  /// The next one that is handled, or null.
  AnnouncedPtr next() {
    while (true) {
      if (_inHand) {
        _discharge(_inHand);
      }
      _inHand = _leaves();
      if (!_inHand || !_inHand->mounts() || _isKnown(*_inHand)) {
        return _inHand;
      }
      const auto charged = _charged.find(*_inHand->uuid);
      const AnnouncedPtr other = charged == _charged.end() ? nullptr : charged->second;
      if (other == _inHand) {
        return _inHand;
      }
      // It stands in the other one's place, if it may.
      if (other) {
        _discharge(other);
      }
      if (!_reasonNotToMount(_inHand->sender)) {
        _charge(_inHand);
        return _inHand;
      }
      if (other) {
        _charge(other);
      }
    }
  }

  /// What the event in hand changes.
  void handled() {
    if (_inHand->mounts()) {
      if (!_isKnown(*_inHand)) {
        _known.push_back(_inHand);
        _knownByUuid[*_inHand->uuid] = _inHand;
        _knownOf[_inHand->sender].add(*_inHand);
        _knownText += _inHand->size();
      }
    } else if (_inHand->event == "disk_unmounted" && _isKnown(*_inHand)) {
      _forget([this](const Announced& disk) { return disk.uuid == _inHand->uuid; });
    } else if (_inHand->event == "no_disk") {
      _forget([this](const Announced& disk) { return disk.mac == _inHand->mac; });
    }
  }

  [[nodiscard]] const std::vector<AnnouncedPtr>& known() const { return _known; }
  [[nodiscard]] std::vector<AnnouncedPtr> waiting() const {
    std::vector<AnnouncedPtr> events;
    events.reserve(_waiting.size());
    for (const auto& [place, event] : _waiting) {
      events.push_back(event);
    }
    return events;
  }
  [[nodiscard]] std::size_t waitingCount() const { return _waiting.size(); }

 private:
  static constexpr std::size_t MEBIBYTE = std::size_t{1024} * 1024;

  struct Sum {
    std::size_t count = 0;
    std::size_t text = 0;
    void add(const Announced& event) {
      ++count;
      text += event.size();
    }
    void subtract(const Announced& event) {
      --count;
      text -= event.size();
    }
  };

  // The order: everybody's first sixteen, then everybody's second sixteen, and so on; in each of
  // these turns as they came.
  void _waits(const AnnouncedPtr& event) {
    const std::uint64_t first = _waiting.empty() ? 0 : _waiting.begin()->first.first;
    auto& [turn, taken] = _turns[event->sender];
    if (_waitingOf[event->sender].count == 0 || turn < first) {
      turn = first;
      taken = 0;
    }
    if (taken == 16) {
      ++turn;
      taken = 0;
    }
    ++taken;
    _waiting[{turn, _arrivals++}] = event;
    _waitingOf[event->sender].add(*event);
    _waitingText += event->size();
    _alike[{event->event, event->mac, event->uuid}].push_back(event);
  }

  AnnouncedPtr _leaves() {
    if (_waiting.empty()) {
      return nullptr;
    }
    const AnnouncedPtr event = _waiting.begin()->second;
    _waiting.erase(_waiting.begin());
    _waitingOf[event->sender].subtract(*event);
    _waitingText -= event->size();
    std::erase(_alike[{event->event, event->mac, event->uuid}], event);
    return event;
  }

  [[nodiscard]] bool _isKnown(const Announced& event) const {
    return event.uuid && _knownByUuid.contains(*event.uuid);
  }

  /// Whether the event in hand has become a known disk.
  [[nodiscard]] bool _isInHandKnown() const {
    const auto record =
        _inHand && _inHand->uuid ? _knownByUuid.find(*_inHand->uuid) : _knownByUuid.end();
    return record != _knownByUuid.end() && record->second == _inHand;
  }

  template <class Goes>
  void _forget(const Goes& goes) {
    for (const AnnouncedPtr& disk : std::exchange(_known, {})) {
      if (goes(*disk)) {
        _knownByUuid.erase(*disk->uuid);
        _knownOf[disk->sender].subtract(*disk);
        _knownText -= disk->size();
      } else {
        _known.push_back(disk);
      }
    }
  }

  void _charge(const AnnouncedPtr& event) {
    _charged[*event->uuid] = event;
    ++_chargedOf[event->sender];
  }
  void _discharge(const AnnouncedPtr& event) {
    const auto charged = event->uuid ? _charged.find(*event->uuid) : _charged.end();
    if (charged != _charged.end() && charged->second == event) {
      _charged.erase(charged);
      --_chargedOf[event->sender];
    }
  }

  /// One that has just been mounted is known, and counted no second time.
  [[nodiscard]] Text _reasonNotToMount(std::uint32_t sender) {
    const std::size_t twice = _isInHandKnown() ? 1 : 0;
    const std::size_t twiceOfSender = twice == 1 && _inHand->sender == sender ? 1 : 0;
    if (_knownOf[sender].count + _chargedOf[sender] - twiceOfSender >= 1024) {
      return "1024 of its disks are known, and no sender may have more";
    }
    if (_known.size() + _charged.size() - twice >= 4096) {
      return "4096 disks are known, and there may not be more";
    }
    return std::nullopt;
  }

  [[nodiscard]] Text _reasonNotToWait(const Announced& event) {
    const std::uint32_t sender = event.sender;
    if (_waitingOf[sender].count >= 1024) {
      return "1024 of its announcements wait, and no sender may have more waiting";
    }
    if (_waiting.size() >= 16384) {
      return "16384 announcements wait, and there may not be more";
    }
    const std::size_t inHand = _inHand && !_isInHandKnown() ? _inHand->size() : 0;
    const std::size_t inHandOfSender = _inHand && _inHand->sender == sender ? inHand : 0;
    if (_waitingOf[sender].text + _knownOf[sender].text + inHandOfSender + event.size() >
        MEBIBYTE) {
      return "the texts of its announcements would be longer than the 1048576 bytes that a sender "
             "may have";
    }
    if (_waitingText + _knownText + inHand + event.size() > 16 * MEBIBYTE) {
      return "the texts of all announcements would be longer than 16777216 bytes";
    }
    return std::nullopt;
  }

  /// Times are in seconds.
  Text _lineAbout(std::uint32_t sender, const std::string& reason, std::int64_t now) {
    const auto isRecent = [now](const std::optional<std::int64_t>& time) {
      return time && now - *time < 60;
    };
    const auto known = _dropped.find(sender);
    const bool begins = known == _dropped.end() || !isRecent(known->second);
    if (known == _dropped.end() && _dropped.size() == 64) {
      // The one that was dropped longest ago is not remembered any more.
      auto oldest = _dropped.begin();
      for (auto at = _dropped.begin(); at != _dropped.end(); ++at) {
        oldest = at->second < oldest->second ? at : oldest;
      }
      _dropped.erase(oldest);
    }
    _dropped[sender] = now;
    if (!begins) {
      return std::nullopt;
    }
    std::string who;
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
      who += (who.empty() ? "" : ".") + std::to_string((sender >> shift) % 256);
    }
    who += " are dropped: " + reason;
    if (!isRecent(_lineAboutOne)) {
      _lineAboutOne = now;
      _theOne = sender;
      return "Announcements from " + who;
    }
    if (sender != _theOne && !isRecent(_lineAboutOthers)) {
      _lineAboutOthers = now;
      return "Announcements of further senders are dropped, too; those from " + who;
    }
    return std::nullopt;
  }

  std::map<std::pair<std::uint64_t, std::uint64_t>, AnnouncedPtr> _waiting;  // by turn and arrival
  std::uint64_t _arrivals = 0;
  std::map<std::uint32_t, std::pair<std::uint64_t, std::size_t>> _turns;
  /// By event, device and disk: nothing else repeats one of them, but for those without a disk.
  std::map<std::tuple<std::string, std::string, Text>, std::vector<AnnouncedPtr>> _alike;
  std::map<std::uint32_t, Sum> _waitingOf;
  std::size_t _waitingText = 0;

  AnnouncedPtr _inHand;
  std::map<std::string, AnnouncedPtr> _charged;  // those that are going to make a disk known
  std::map<std::uint32_t, std::size_t> _chargedOf;

  std::vector<AnnouncedPtr> _known;
  std::map<std::string, AnnouncedPtr> _knownByUuid;
  std::map<std::uint32_t, Sum> _knownOf;
  std::size_t _knownText = 0;

  std::map<std::uint32_t, std::int64_t> _dropped;
  std::optional<std::int64_t> _lineAboutOne;
  std::optional<std::int64_t> _lineAboutOthers;
  std::uint32_t _theOne = 0;
};

}  // namespace ravelin::fuzz
