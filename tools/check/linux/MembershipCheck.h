#pragma once

#include <optional>
#include <string>
#include <vector>

#include "check/Finding.h"
#include "check/linux/Memberships.h"
#include "core/LocalAddresses.h"

namespace ravelin::check {

/// Whether each interface that has an address can hear the groups, and, where an agent is running,
/// whether they are joined there.
[[nodiscard]] Findings checkMemberships(const std::vector<std::string>& groups, bool agentIsRunning,
                                        const std::vector<LocalAddress>& addresses,
                                        const std::optional<Memberships>& joined);

}  // namespace ravelin::check
