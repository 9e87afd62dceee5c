#pragma once

namespace ravelin::platform {

/// Loads the desktop's application services into a process that has no application object of its
/// own; false when that fails. Main thread, once.
[[nodiscard]] bool loadApplicationServices();

}  // namespace ravelin::platform
