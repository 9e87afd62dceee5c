#include "platform/RunLoopSocket.h"

#include <unistd.h>

#include <utility>

#include "base/Precondition.h"
#include "platform/RunLoop.h"

namespace ravelin::platform {

/// Outlives the socket while a wake-up is being served, because the callback may destroy that.
struct RunLoopSocket::State {
  RunLoopSocket& socket;  // valid while the descriptor is not -1
  int descriptor;
  Callback callback;
  bool isFurtherRead = false;
  std::unique_ptr<RunLoop::Watch> watch = nullptr;

  void serve() {
    for (int reads = 0; reads < READS_PER_WAKE && descriptor >= 0; ++reads) {
      isFurtherRead = reads > 0;
      if (!callback(socket)) {
        break;
      }
    }
    isFurtherRead = false;
  }
};

RunLoopSocket::RunLoopSocket(int descriptor, Callback callback)
    : _state(std::make_shared<State>(State{*this, descriptor, std::move(callback)})) {
  precondition(descriptor >= 0, "RunLoopSocket", "descriptor >= 0");
  precondition(_state->callback != nullptr, "RunLoopSocket", "callback != nullptr");
}

RunLoopSocket::~RunLoopSocket() { invalidate(); }

int RunLoopSocket::native() const { return _state->descriptor; }

bool RunLoopSocket::isFurtherRead() const { return _state->isFurtherRead; }

bool RunLoopSocket::addTo(RunLoop& loop) {
  if (_state->descriptor < 0 || _state->watch != nullptr) {
    return false;
  }
  _state->watch = loop.watchReadable(_state->descriptor, RunLoop::Urgency::socket,
                                     [watched = std::weak_ptr(_state)] {
                                       if (const auto state = watched.lock()) {
                                         state->serve();
                                       }
                                     });
  return _state->watch != nullptr;
}

void RunLoopSocket::invalidate() {
  // The loop must let go of the descriptor before its number can belong to something else.
  _state->watch.reset();
  if (const int descriptor = std::exchange(_state->descriptor, -1); descriptor >= 0) {
    close(descriptor);
  }
}

}  // namespace ravelin::platform
