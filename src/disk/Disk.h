#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace ravelin {

/// One announcement about one disk behind one network device, and, once the share is mounted, the
/// local volume that belongs to it. One thread at a time, but for lastUpdateTime. A disk that a
/// queue or the list of mounted disks holds keeps its five texts, and has been asked for their
/// hash.
class Disk {
 public:
  using Date = std::chrono::system_clock::time_point;

  /// The five texts, as somebody else keeps them.
  struct TextViews {
    std::optional<std::string_view> eventName;
    std::optional<std::string_view> macAddress;
    std::optional<std::string_view> ipAddress;
    std::optional<std::string_view> uuid;
    std::optional<std::string_view> label;
  };

  /// Everything absent, no volume.
  Disk() = default;
  /// Copies of these texts, no volume.
  explicit Disk(const TextViews& texts)
      : _eventName(texts.eventName),
        _macAddr(texts.macAddress),
        _ipAddr(texts.ipAddress),
        _uuid(texts.uuid),
        _label(texts.label) {}
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  /// What the device announces: "disk_mounted", "disk_status", "disk_unmounted" or "no_disk".
  [[nodiscard]] const Text& eventName() const { return _eventName; }
  void setEventName(Text eventName) { _set(_eventName, std::move(eventName)); }

  /// The announcing device, by the text of its MAC address.
  [[nodiscard]] const Text& macAddress() const { return _macAddr; }
  void setMacAddress(Text macAddress) { _set(_macAddr, std::move(macAddress)); }

  /// The SMB server of the share: the device's IPv4 address as dotted text.
  [[nodiscard]] const Text& ipAddress() const { return _ipAddr; }
  void setIpAddress(Text ipAddress) { _set(_ipAddr, std::move(ipAddress)); }

  /// The disk's identifier, as announced.
  [[nodiscard]] const Text& uuid() const { return _uuid; }
  void setUuid(Text uuid) { _set(_uuid, std::move(uuid)); }

  /// The disk's label, which is also the name of its share on the device.
  [[nodiscard]] const Text& label() const { return _label; }
  void setLabel(Text label) { _set(_label, std::move(label)); }

  /// The reference number of the locally mounted volume; 0 while none is known.
  [[nodiscard]] std::int16_t volumeReference() const { return _volumeReference; }
  void setVolumeReference(std::int16_t volumeReference) { _volumeReference = volumeReference; }

  /// When the disk was last announced; null until it is mounted. Any thread.
  [[nodiscard]] std::optional<Date> lastUpdateTime() const;
  void setLastUpdateTime(std::optional<Date> lastUpdateTime);

  /// The IPv4 address from which the announcement came, as a number in host order; 0 while none is
  /// known. It takes no part in equality.
  [[nodiscard]] std::uint32_t sender() const { return _sender; }
  void setSender(std::uint32_t sender) { _sender = sender; }

  /// The bytes that the five texts have together.
  [[nodiscard]] std::size_t textSize() const { return _digested().size; }

  /// A set of the five texts: one bit for each.
  using Texts = std::uint32_t;
  static constexpr std::size_t TEXT_COUNT = 5;

  /// The texts that the disk has.
  [[nodiscard]] Texts presentTexts() const { return _digested().present; }

  /// A keyed hash of these texts, all of which the disk must have. Disks with the same ones of them
  /// have the same hash.
  [[nodiscard]] std::uint64_t hashOf(Texts texts) const;

  /// A keyed hash of the uuid; 0 where there is none.
  [[nodiscard]] std::uint64_t hashOfUuid() const { return _digested().hashOfUuid; }

  /// Whether the other disk has each of the five texts that this disk has, exactly. A text that
  /// this disk lacks matches anything, so the result may differ the other way round.
  [[nodiscard]] bool isEqual(const Disk& other) const;

  /// Where the disk's volume is mounted, or null. Once found, the path is kept.
  [[nodiscard]] Text getVolumePath();

  /// Whether the disk's volume is mounted, found out afresh.
  [[nodiscard]] bool doesVolumeExist() const;

 protected:
  /// Where the disk's volume is mounted, found out afresh: by its reference, else from the mount
  /// table; null when it is not. Waits for the system.
  [[nodiscard]] Text _getVolumePath() const;

 private:
  static constexpr Date::rep NO_DATE = std::numeric_limits<Date::rep>::min();

  /// What indexes and limits ask for again and again: found out once for all the texts.
  struct Digest {
    Texts present = 0;
    std::uint32_t size = 0;  // no datagram has more
    std::uint64_t hashOfUuid = 0;
    std::uint64_t hash = 0;  // of those that are present
  };

  [[nodiscard]] const Digest& _digested() const {
    if (!_isDigested) {
      _digest();
    }
    return _digestOfTexts;
  }
  void _digest() const;
  [[nodiscard]] std::array<const Text*, TEXT_COUNT> _texts() const;
  [[nodiscard]] std::uint64_t _hashOf(Texts texts) const;
  void _set(Text& text, Text&& value) {
    text = std::move(value);
    _isDigested = false;
  }

  Text _eventName;
  Text _macAddr;
  Text _ipAddr;
  Text _uuid;
  Text _label;
  // There are thousands of disks: what needs little room stands together, and what hardly any disk
  // has stands elsewhere.
  std::int16_t _volumeReference = 0;
  mutable bool _isDigested = false;
  std::uint32_t _sender = 0;
  std::atomic<Date::rep> _lastUpdateTime = NO_DATE;
  std::unique_ptr<const std::string> _volumePath;  // null until it has been found
  mutable Digest _digestOfTexts;
};

using DiskPtr = std::shared_ptr<Disk>;

}  // namespace ravelin
