#pragma once

#include <functional>

namespace ravelin::platform {

/// From now on SIGTERM does not end the process; instead the main thread's run loop calls the
/// handler, before anything else that waits there. A signal that comes before the loop runs is not
/// lost.
///
/// Until SIGTERM is sent to the process, all other signals do what they did before. From that
/// instant on SIGHUP, SIGINT and SIGQUIT do nothing, and once the loop has taken the signal,
/// neither does any other one that can be ignored and does not tell of a fault: nothing cuts the
/// handler short. Main thread only, once per process, before any other thread is started.
void installTerminationHandler(std::function<void()> handler);

}  // namespace ravelin::platform
