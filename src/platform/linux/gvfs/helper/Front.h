#pragma once

#include <functional>
#include <string>

#include "platform/linux/gvfs/VolumeSituation.h"

namespace ravelin::volumes {

/// How an operation ended.
struct Answer {
  platform::VolumeSituation situation = platform::VolumeSituation::failed;
  std::string text;  ///< where something is mounted now, or what has been said about the failure
};

/// The background's connection to the front, for as long as the front waits for the answer.
class Connection {
 public:
  explicit Connection(int descriptor) : _descriptor(descriptor) {}

  /// A descriptor that becomes readable when the front does not wait any more.
  [[nodiscard]] int descriptor() const { return _descriptor; }

  /// Hands the answer to the front. Returns whether it has been printed.
  [[nodiscard]] bool deliver(const Answer& answer) const;

 private:
  int _descriptor;
};

/// Prints the answer and returns the exit status that stands for it.
int conclude(const Answer& answer);

/// Has the work done in the background and concludes with what it delivers; also the exit status of
/// the background. The background is a process of a session of its own, without input and output,
/// that continues when this one ends by a signal, or because its output has no reader any more.
int runInBackground(const std::function<void(const Connection& front)>& work);

}  // namespace ravelin::volumes
