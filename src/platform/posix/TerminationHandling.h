#pragma once

#include <functional>

namespace ravelin::platform {

class RunLoop;

/// How a system has SIGTERM wake a run loop: once this has been called, the signal does not end the
/// process but makes the returned descriptor readable; what can be read there is gone once it has
/// been read. The descriptor never waits and is kept from other programs; -1 when the system
/// refuses it. Main thread only, once per process, before any other thread is started.
using TerminationWaking = int (*)();

/// Implements installTerminationHandler() with this waking. `loop` is the main thread's. SIGTERM
/// counts as sent as soon as it waits, blocked, or else when its handler begins.
void handleTermination(RunLoop& loop, TerminationWaking waking, std::function<void()> handler);

/// A waking for systems without a better one: a signal handler that writes to a socket, whose other
/// end is returned, since not every run loop watches pipes. It counts on the system to have SIGTERM
/// taken by the main thread: where another one takes it, a signal right behind it still ends the
/// process if its handler begins first.
int wakeThroughSocket();

}  // namespace ravelin::platform
