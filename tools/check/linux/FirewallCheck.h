#pragma once

#include <vector>

#include "check/Finding.h"
#include "check/Target.h"

namespace ravelin::check {

/// Whether the firewall of nftables lets announcements in, if it may be read.
[[nodiscard]] Findings checkFirewall(const std::vector<Target>& targets);

}  // namespace ravelin::check
