#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "Verdict.h"
#include "base/Text.h"
#include "controller/Admission.h"
#include "controller/MountedDisks.h"
#include "disk/Disk.h"
#include "disk/Queue.h"
#include "intake/EventParser.h"

namespace ravelin::check {

/// An agent that only says what it would do: it reads announcements by the agent's parser, and
/// keeps to its rules and limits for what waits and what is known. It begins without any disk. One
/// thread.
class ImaginedAgent {
 public:
  /// The announcement with as much of it as could be read, and what becomes of it.
  struct Judgement {
    DiskPtr announced;
    Verdict verdict;
  };

  /// Takes one datagram; the sender is an IPv4 address in host order.
  Judgement take(std::span<const std::byte> payload, std::uint32_t sender);

  /// Handles all that waits. To be called every DISK_EVENT_HANDLER_INTERVAL.
  void handleWaiting(Disk::Date now);

  /// Forgets the disks that have fallen silent. To be called every
  /// DISK_UPDATE_TIME_CHECKER_INTERVAL.
  void forgetSilent(Disk::Date now);

 private:
  [[nodiscard]] static Verdict _verdictOnReading(std::span<const std::byte> payload,
                                                 const EventParser::Reading& reading,
                                                 const Disk& announced);
  [[nodiscard]] Verdict _verdictOnComplete(const Disk& announced) const;
  [[nodiscard]] Verdict _verdictOnNew(const Disk& announced) const;
  [[nodiscard]] Verdict _verdictOnRemoval(const Disk& announced) const;
  void _handle(const DiskPtr& event, Disk::Date now);

  Queue _waiting;
  MountedDisks _known;
  Admission _admission{_waiting, _known};
};

}  // namespace ravelin::check
