#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "controller/MountedDisks.h"
#include "disk/Disk.h"
#include "disk/Queue.h"
#include "disk/TextKey.h"

namespace ravelin {

/// Decides which of the complete and unique announcements get in, so that a flood finds bounded
/// memory, a bounded desktop and a bounded log. What does not get in is dropped as if the network
/// had lost it, which no device minds, since it repeats itself. A sender is an IPv4 address,
/// whatever the port.
///
/// An announcement gets in while, with it, each of these holds:
///
/// | | from one sender | in all |
/// |---|---|---|
/// | known disks | 1,024 | 4,096 |
/// | waiting events | 1,024 | 16,384 |
/// | bytes of text of both | 1 MiB | 16 MiB |
///
/// A disk is known while it is mounted, which counts for the sender whose announcement mounted it.
/// A waiting announcement of a disk that is neither known nor announced by another waiting one
/// counts as the known disk that it is going to be. Announcements of known disks never fail the
/// first line; if the disk has been unmounted before it is their turn, that line holds for them
/// then.
///
/// A drop is logged when it is its sender's first within a minute. However many senders there are,
/// made-up ones included, at most one such line is written a minute, and at most one more about all
/// the other senders together. Only the last few senders are remembered for that.
///
/// It works on the controller's queue and list, under the mutex that guards them.
class Admission {
 public:
  static constexpr std::size_t KNOWN_DISKS_OF_SENDER = 1024;
  static constexpr std::size_t KNOWN_DISKS = 4096;
  static constexpr std::size_t WAITING_EVENTS_OF_SENDER = 1024;
  static constexpr std::size_t WAITING_EVENTS = 16384;
  static constexpr std::size_t TEXT_OF_SENDER = std::size_t{1024} * 1024;
  static constexpr std::size_t TEXT = 16 * TEXT_OF_SENDER;

  enum class Limit {
    knownDisksOfSender,
    knownDisks,
    waitingEventsOfSender,
    waitingEvents,
    textOfSender,
    text,
  };

  using Time = std::chrono::steady_clock::time_point;

  Admission(Queue& waiting, const MountedDisks& known) : _waiting(waiting), _known(known) {}

  /// Has the event wait in the queue, or drops it and returns the limit that it would have passed.
  std::optional<Limit> admit(const DiskPtr& event);

  /// Takes the next event off the queue for handling, or returns null when none waits; the one
  /// taken before counts as handled. Events that would mount a disk past a limit are passed over.
  DiskPtr next();

  /// To be called right after the queue's events have been replaced, before anything else: counts
  /// afresh those that are going to make a disk known.
  void queueWasReplaced();

  /// Whether the disk with the uuid is known, or becomes known by an announcement that is waiting.
  [[nodiscard]] bool isKnownOrGoingToBe(const Disk& disk) const;

  /// What the limit is, in words for people: "1024 of its disks are known, ...".
  [[nodiscard]] static std::string reasonOf(Limit limit);

  /// The line to log now about a drop, or null.
  [[nodiscard]] Text lineAbout(std::uint32_t sender, Limit limit, Time now);

 private:
  static constexpr std::size_t REMEMBERED_SENDERS = 64;
  static constexpr std::chrono::minutes LINE_INTERVAL{1};

  /// Whether the event would mount a disk if its turn came now.
  [[nodiscard]] bool _wouldMount(const Disk& event) const;
  /// Whether the event taken last is nowhere else: neither waiting nor a mounted record.
  [[nodiscard]] bool _isHandOnly() const;
  [[nodiscard]] std::optional<Limit> _limitOfKnown(std::uint32_t sender) const;
  [[nodiscard]] std::optional<Limit> _limitOfWaiting(const Disk& event) const;
  [[nodiscard]] bool _isCharged(const Disk& event) const;
  /// The event counts as a known disk from now on, in place of another one with its uuid.
  void _charge(const Disk& event);
  void _discharge(const Disk& event);

  Queue& _waiting;
  const MountedDisks& _known;

  DiskPtr _inHand;
  /// The events, waiting or in hand, that are going to make a disk known, by its uuid.
  std::map<TextKey, const Disk*> _charged;
  std::map<std::uint32_t, std::size_t> _chargedOfSender;

  /// When the senders were last dropped.
  std::map<std::uint32_t, Time> _dropped;
  /// When the last lines were written, about one sender and about all the others.
  std::optional<Time> _lineAboutOne;
  std::optional<Time> _lineAboutOthers;
  std::uint32_t _senderInLine = 0;  // about one sender
};

}  // namespace ravelin
