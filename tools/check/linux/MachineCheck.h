#pragma once

#include "check/Report.h"

namespace ravelin::check {

/// Looks at everything that this user's agent needs. Main thread.
[[nodiscard]] Report checkMachine();

}  // namespace ravelin::check
