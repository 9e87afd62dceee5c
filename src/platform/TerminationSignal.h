#pragma once

#include <functional>

namespace ravelin::platform {

/// From now on SIGTERM does not end the process; instead the main thread's run loop calls the
/// handler, before anything else that waits there. The signal handler itself only wakes that loop,
/// and a signal that comes before the loop runs is not lost. No other signal changes. Main thread
/// only, once per process.
void installTerminationHandler(std::function<void()> handler);

}  // namespace ravelin::platform
