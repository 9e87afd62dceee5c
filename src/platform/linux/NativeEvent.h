#pragma once

struct sd_event;

namespace ravelin::platform {

class RunLoop;

/// The event loop behind a run loop, for the system's own libraries that attach themselves to one,
/// and the priority at which they shall do so: that of sockets. The loop's thread only.
[[nodiscard]] sd_event* nativeEventOf(RunLoop& loop);

inline constexpr int NATIVE_EVENT_PRIORITY = 3;

}  // namespace ravelin::platform
