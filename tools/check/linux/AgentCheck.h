#pragma once

#include <vector>

#include "check/Finding.h"
#include "check/linux/Processes.h"

namespace ravelin::check {

/// The agents of the user, a number, in this network.
[[nodiscard]] std::vector<Process> agentsOf(uid_t user, const std::vector<Process>& all);

/// Whether an agent of the user runs, whether several do, and whether others have theirs.
[[nodiscard]] Findings checkAgents(uid_t user, const std::vector<Process>& all);

}  // namespace ravelin::check
