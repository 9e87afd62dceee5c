#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace ravelin::platform {

/// An agent that is running, by the number of its process, and its user.
struct RunningAgent {
  pid_t process = 0;
  uid_t user = 0;
};

/// The agents of all users that are running, in the order of their processes. Null where the system
/// does not tell. Any thread.
[[nodiscard]] std::optional<std::vector<RunningAgent>> runningAgentsOfAll();

/// The agents of this user that are running, by the numbers of their processes, in ascending order.
/// Null where the system does not tell. Any thread.
[[nodiscard]] std::optional<std::vector<pid_t>> runningAgents();

}  // namespace ravelin::platform
