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

/// The background's way to the front, which it reaches as long as somebody waits for the answer.
class Connection {
 public:
  explicit Connection(int descriptor) : _descriptor(descriptor) {}

  /// What becomes readable when nobody waits any more.
  [[nodiscard]] int descriptor() const { return _descriptor; }

  /// Hands the answer over; whether it has been printed.
  [[nodiscard]] bool deliver(const Answer& answer) const;

 private:
  int _descriptor;
};

/// Prints the answer and returns the exit status that stands for it.
int conclude(const Answer& answer);

/// Has the work done in the background and concludes with what it delivers; also the exit status of
/// the background. The background is a process of a session of its own, without input and output,
/// that goes on when this one ends: by a signal, or because nobody can read its output any more.
int runInBackground(const std::function<void(const Connection& front)>& work);

}  // namespace ravelin::volumes
