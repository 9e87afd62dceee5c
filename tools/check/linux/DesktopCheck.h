#pragma once

#include "check/Finding.h"

namespace ravelin::check {

/// Which folder the desktop is, and whether a shortcut can be made there: a hidden one is made as
/// the agent does, and removed.
[[nodiscard]] Findings checkDesktop();

}  // namespace ravelin::check
