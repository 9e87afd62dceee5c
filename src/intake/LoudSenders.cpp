#include "intake/LoudSenders.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "platform/SenderFilter.h"

namespace ravelin {

using platform::RunLoop;

void LoudSenders::heard(std::uint32_t sender, int descriptor) {
  _senders[_heard++] = sender;
  if (_heard == LOOK_INTERVAL) {
    _look(descriptor);
    _heard = 0;
  }
}

void LoudSenders::_look(int descriptor) {
  const auto buffer = platform::receiveBufferOf(descriptor);
  if (!buffer) {
    return;
  }
  const std::uint32_t lost = buffer->dropped - std::exchange(_droppedBefore, buffer->dropped);
  // What silenced senders send counts as dropped, too, but does not fill the buffer.
  if (lost < LOOK_INTERVAL || !buffer->isMoreThanHalfFull) {
    return;
  }
  std::uint32_t loudest = 0;
  std::ptrdiff_t most = 0;
  for (const std::uint32_t sender : _senders) {
    const auto count = std::ranges::count(_senders, sender);
    if (count > most) {
      loudest = sender;
      most = count;
    }
  }
  if (most >= std::ptrdiff_t{LOUD} && !_silenced.contains(loudest)) {
    _silenceSender(loudest, descriptor);
  }
}

void LoudSenders::_silenceSender(std::uint32_t sender, int descriptor) {
  if (_silenced.size() >= platform::FILTERED_SENDERS_LIMIT) {
    return;
  }
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::duration_cast<std::chrono::steady_clock::duration>(_silence);
  _silenced.emplace(sender, end);
  if (!_applyTo(descriptor)) {
    _silenced.erase(sender);
    return;
  }
  if (!_timer) {
    _timer = RunLoop::current().scheduleTimer(RunLoop::Seconds(0.5),
                                              [this, descriptor] { _listenAgain(descriptor); });
  }
}

void LoudSenders::_listenAgain(int descriptor) {
  const auto now = std::chrono::steady_clock::now();
  if (std::erase_if(_silenced, [&](const auto& entry) { return entry.second <= now; }) == 0) {
    return;
  }
  _applyTo(descriptor);
  if (_silenced.empty()) {
    _timer.reset();
  }
}

bool LoudSenders::_applyTo(int descriptor) const {
  std::vector<std::uint32_t> senders;
  senders.reserve(_silenced.size());
  for (const auto& [sender, end] : _silenced) {
    senders.push_back(sender);
  }
  return platform::dropDatagramsFrom(descriptor, senders);
}

void LoudSenders::forget() {
  _timer.reset();
  _silenced.clear();
  _droppedBefore = 0;
  _heard = 0;
}

}  // namespace ravelin
