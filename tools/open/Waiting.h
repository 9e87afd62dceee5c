#pragma once

#include <functional>

#include "platform/linux/GioTypes.h"

namespace ravelin::open {

/// Says once that the user has to wait, when this has been there for two seconds. It does so from
/// the loop of the main thread, in which GIO works. Main thread.
class Waiting {
 public:
  explicit Waiting(std::function<void()> tell);
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  /// Whether it has been said.
  [[nodiscard]] bool isTold() const { return _timer == 0; }

 private:
  static gboolean _onTimeUp(gpointer self);

  const std::function<void()> _tell;
  guint _timer;
};

}  // namespace ravelin::open
