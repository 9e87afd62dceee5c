#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/Failure.h"

namespace ravelin::open {

/// Why this is not the URL of one share as Ravelin Disk writes it: "smb://guest:@", an IPv4
/// address, "/", and the name of a share with the agent's percent escapes. Null when it is.
std::optional<Failure> failureOfShareUrl(std::string_view url);

/// What the URL of a share consists of.
struct ShareName {
  std::string server;  ///< its IPv4 address
  std::string share;   ///< without percent escapes
};

/// Of a URL with which nothing is wrong.
[[nodiscard]] ShareName nameInShareUrl(std::string_view url);

}  // namespace ravelin::open
