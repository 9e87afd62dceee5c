#pragma once

#include "check/Finding.h"

namespace ravelin::check {

/// Whether the helpers are where the agent that was installed with this program looks for them, and
/// whether the desktop knows what opens a shortcut.
[[nodiscard]] Findings checkPrograms();

}  // namespace ravelin::check
