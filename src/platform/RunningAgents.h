#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace ravelin::platform {

/// The agents of this user that are running, by the numbers of their processes, in ascending order.
/// Null where the system does not tell. Any thread.
[[nodiscard]] std::optional<std::vector<pid_t>> runningAgents();

}  // namespace ravelin::platform
