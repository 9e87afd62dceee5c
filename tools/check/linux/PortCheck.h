#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "check/Finding.h"
#include "check/linux/Processes.h"
#include "check/linux/UdpSockets.h"

namespace ravelin::check {

/// Whether one of the sockets takes all that comes to the port, wherever it is sent.
[[nodiscard]] bool isHeldEverywhere(std::uint16_t port,
                                    const std::optional<std::vector<UdpSocket>>& sockets);

/// Whether the agent of the user has the port or can have it, and who else has it. The trial takes
/// nothing away from those that have it. Main thread.
[[nodiscard]] Findings checkPort(std::uint16_t port, uid_t user,
                                 const std::optional<std::vector<UdpSocket>>& sockets,
                                 const std::vector<Process>& all);

}  // namespace ravelin::check
