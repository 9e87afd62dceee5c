#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

namespace ravelin::fakes {

/// Runs the calling thread's loop of CoreFoundation's that long, as a script or a dialogue does
/// that waits for something of its own. False when somebody stops the loop before.
bool spinRunLoop(double seconds);

/// Sets the wall clock forward or back by that much, as somebody does by hand. Any thread.
void moveWallClock(double seconds);

/// A source of the system's own on the main thread's loop, in the default mode. What is posted from
/// any thread is called there, whoever runs the loop. Lives for ever.
void postToMainLoop(std::function<void()> call);

/// Signals the source and wakes the loops that it is on, as the system's services do. Any thread.
void signalAndWake(CFRunLoopSourceRef source);

}  // namespace ravelin::fakes
