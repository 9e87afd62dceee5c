#pragma once

#include <optional>
#include <string>

#include "common/Failure.h"

namespace ravelin::open {

// The URL is always that of one share; see ShareUrl.h. Every failure is one sentence that says what
// is wrong and what to do. In the main thread, whose loop runs meanwhile.

/// Mounts the share for this session, as guest and without a question to the user. Null when it is
/// mounted, also when it was before, and its device answers. Takes a minute at most.
std::optional<Failure> mountShare(const std::string& url);

/// Has the share shown by the application for folders. Null when that has been started. Takes half
/// a minute at most. The URL must be the one by which the share was mounted: under another one with
/// the same meaning, the mount is not found.
std::optional<Failure> showShare(const std::string& url);

}  // namespace ravelin::open
