#pragma once

#include <optional>
#include <string>

#include "common/Failure.h"

namespace ravelin::open {

/// Mounts the share for this session, as guest and without a question to the user. Null when it is
/// mounted, also by somebody else before; after half a minute at the latest.
std::optional<Failure> mountShare(const std::string& url);

/// Has the share shown by the application that is in charge of it. Null when that one has been
/// started; after half a minute at the latest. The URL is the one that the share was mounted by:
/// under another one, though it means the same, the mount is not found.
std::optional<Failure> showShare(const std::string& url);

}  // namespace ravelin::open
