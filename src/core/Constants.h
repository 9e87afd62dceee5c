#pragma once

#include <string_view>

namespace ravelin {

/// How often the shell mount is tried.
inline constexpr int SHELL_MOUNT_RETRY_COUNT = 3;

/// Seconds between two checks for disks that have fallen silent.
inline constexpr double DISK_UPDATE_TIME_CHECKER_INTERVAL = 30.0;

/// Seconds of silence after which a mounted disk is unmounted.
inline constexpr double DISK_EXPECTED_UPDATE_TIME_INTERVAL = 120.0;

/// The file, in the per-user support folder, that lists the shortcuts.
inline constexpr std::string_view DISK_RECORD_FILE = "RavelinDiskTempFile.txt";

/// Seconds between two looks at the waiting events.
inline constexpr double DISK_EVENT_HANDLER_INTERVAL = 0.5;

}  // namespace ravelin
