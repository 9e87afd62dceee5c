#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace ravelin::check {

/// The multicast groups, in dotted form, that somebody on this machine has joined, by interface.
using Memberships = std::map<std::string, std::set<std::string>>;

/// Those in a table of the form of /proc/net/igmp. Lines that are not understood are passed over.
/// Any thread.
[[nodiscard]] Memberships membershipsIn(std::string_view table);

/// Those of the network that this process is in; null where the system does not tell.
[[nodiscard]] std::optional<Memberships> memberships();

}  // namespace ravelin::check
