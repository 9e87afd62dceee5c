#include "Waiting.h"

#include <utility>

namespace ravelin::open {

Waiting::Waiting(std::function<void()> tell) : _tell(std::move(tell)) {
  constexpr guint SECONDS_OF_SILENCE = 2;
  _timer = g_timeout_add(SECONDS_OF_SILENCE * 1000, _onTimeUp, this);
}

Waiting::~Waiting() {
  if (_timer != 0) {
    g_source_remove(_timer);
  }
}

gboolean Waiting::_onTimeUp(gpointer self) {
  auto& waiting = *static_cast<Waiting*>(self);
  waiting._timer = 0;
  waiting._tell();
  return G_SOURCE_REMOVE;
}

}  // namespace ravelin::open
