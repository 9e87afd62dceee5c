#pragma once

#include <atomic>

namespace ravelin {

/// Set once the termination signal has been acted upon; never cleared. Any thread.
inline std::atomic<bool> gSystemWillTerminate = false;

/// True while the agent's login session is the active one. Any thread.
inline std::atomic<bool> gSystemActive = false;

}  // namespace ravelin
