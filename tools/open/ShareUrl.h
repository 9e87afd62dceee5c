#pragma once

#include <optional>
#include <string_view>

#include "common/Failure.h"

namespace ravelin::open {

/// Why this is not the URL of one share as Ravelin Disk writes it: "smb://guest:@", an IPv4
/// address, "/", and the name of a share with the agent's percent escapes. Null when it is.
std::optional<Failure> failureOfShareUrl(std::string_view url);

}  // namespace ravelin::open
