#include "intake/LoudSenders.h"

#include <algorithm>
#include <vector>

#include "platform/SenderFilter.h"

namespace ravelin {

using platform::RunLoop;

void LoudSenders::heard(std::uint32_t sender, int descriptor) {
  ++_heardOf[sender];
  if (++_heard == LOOK_INTERVAL) {
    _look(descriptor);
  }
}

void LoudSenders::_look(int descriptor) {
  const auto buffer = platform::receiveBufferOf(descriptor);
  const auto loudest =
      std::ranges::max_element(_heardOf, {}, [](const auto& entry) { return entry.second; });
  // What silenced senders send counts as dropped, too, but does not fill the buffer.
  if (buffer && _droppedBefore && buffer->dropped - *_droppedBefore >= LOOK_INTERVAL &&
      buffer->isMoreThanHalfFull && loudest->second >= LOUD &&
      !_silenced.contains(loudest->first)) {
    _silenceSender(loudest->first, descriptor);
  }
  _droppedBefore = buffer ? std::optional(buffer->dropped) : std::nullopt;
  _heard = 0;
  _heardOf.clear();
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
    _timer = RunLoop::current().scheduleTimer(RunLoop::Seconds(1.0),
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
  for (const auto& [sender, end] : _silenced) {
    senders.push_back(sender);
  }
  return platform::dropDatagramsFrom(descriptor, senders);
}

void LoudSenders::forget() {
  _timer.reset();
  _silenced.clear();
  _droppedBefore.reset();
  _heard = 0;
  _heardOf.clear();
}

}  // namespace ravelin
