#pragma once

#include "check/Finding.h"

namespace ravelin::check {

/// Which folder the desktop is, and whether a shortcut can be made there: a hidden one is made as
/// the agent does, and removed. Where no agent is running, whether there are shortcuts of one that
/// was killed.
[[nodiscard]] Findings checkDesktop(bool agentIsRunning);

}  // namespace ravelin::check
