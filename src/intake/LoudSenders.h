#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "platform/RunLoop.h"

namespace ravelin {

/// Keeps the room in a socket's receive buffer for everybody. When the system drops datagrams
/// because they come too fast, it drops everybody's alike, and a device's single announcement
/// is as good as lost in a flood. So while the buffer is filled and datagrams get lost in numbers,
/// the sender (an IPv4 address) of most of what gets in is not listened to for a while: the system
/// drops what it sends before it takes room. That costs nobody anything but that sender, most of
/// whose datagrams are lost anyway. While nothing is lost, nothing is done, however much comes.
///
/// On the thread of the socket's run loop.
class LoudSenders {
 public:
  /// How many datagrams are read between two looks, and how many must be lost meanwhile. Where
  /// every shortcut gets an icon, no more than these may be read within a tenth of a second.
  static constexpr std::uint32_t LOOK_INTERVAL = 16;
  /// How many of those that are read must be one sender's.
  static constexpr std::uint32_t LOUD = LOOK_INTERVAL / 4;

  /// The silence is short, so that a sender of one long burst is heard again soon; one that goes on
  /// is silenced again after as many datagrams as it takes to see it.
  explicit LoudSenders(platform::RunLoop::Seconds silence = platform::RunLoop::Seconds(2.0))
      : _silence(silence) {}

  /// A datagram of the sender has been read from the socket. Call it after every read.
  void heard(std::uint32_t sender, int descriptor);

  /// Forgets everything: the socket is being closed.
  void forget();

 private:
  using Time = std::chrono::steady_clock::time_point;

  void _look(int descriptor);
  void _silenceSender(std::uint32_t sender, int descriptor);
  void _listenAgain(int descriptor);
  bool _applyTo(int descriptor) const;

  const platform::RunLoop::Seconds _silence;
  // Since the last look.
  std::array<std::uint32_t, LOOK_INTERVAL> _senders{};
  std::size_t _heard = 0;
  std::uint32_t _droppedBefore = 0;
  /// Who is not listened to, and until when.
  std::map<std::uint32_t, Time> _silenced;
  std::unique_ptr<platform::RunLoop::Timer> _timer;  // while somebody is
};

}  // namespace ravelin
