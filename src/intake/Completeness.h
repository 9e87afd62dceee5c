#pragma once

#include <optional>

#include "disk/Disk.h"

namespace ravelin {

/// What keeps an announcement from being complete.
enum class Lack { event, knownEvent, mac, ip, uuid, label };

/// The first thing that the announcement lacks; null when it is complete. Each event needs other
/// texts; an empty one is there. Any thread.
[[nodiscard]] std::optional<Lack> lackOf(const Disk& announced);

}  // namespace ravelin
