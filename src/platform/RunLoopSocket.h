#pragma once

#include <functional>
#include <memory>

namespace ravelin::platform {

class RunLoop;

/// A native datagram socket as a run loop serves it: owns the descriptor, tells its callback that
/// there is something to read, and closes the descriptor when it is invalidated or destroyed.
/// Everything happens on the thread of the run loop to which it was added.
class RunLoopSocket {
 public:
  /// How often the callback is called at the most for one wake-up of the run loop.
  static constexpr int READS_PER_WAKE = 16;

  /// Reads once from the socket and returns whether a further read may find more. It may invalidate
  /// or destroy the socket.
  using Callback = std::function<bool(RunLoopSocket& socket)>;

  /// Takes over the descriptor, which must be open.
  RunLoopSocket(int descriptor, Callback callback);
  ~RunLoopSocket();
  RunLoopSocket(const RunLoopSocket&) = delete;
  RunLoopSocket& operator=(const RunLoopSocket&) = delete;

  /// The descriptor, or -1 once the socket has been invalidated.
  [[nodiscard]] int native() const;

  /// Whether the read that the callback is being called for follows another one that got
  /// something in the same wake-up: then finding nothing is no failure.
  [[nodiscard]] bool isFurtherRead() const;

  /// Has the run loop serve the socket from now on; false when the system refuses.
  /// The run loop's thread only.
  [[nodiscard]] bool addTo(RunLoop& loop);

  /// Takes the socket off its run loop and closes the descriptor; nothing the second time.
  void invalidate();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace ravelin::platform
