#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ravelin::check {

/// A process of this machine, as far as this process may look at it.
struct Process {
  pid_t id = 0;
  uid_t user = 0;
  std::string name;  ///< of its program; the first 15 bytes where no more may be seen
  /// The UDP and other sockets that it holds; null where that may not be seen.
  std::optional<std::set<std::uint64_t>> sockets;
  bool isAgent = false;
  /// It lives in another network, as in a container.
  bool isElsewhere = false;
};

/// All processes that the system shows, by their numbers.
[[nodiscard]] std::vector<Process> processes();

/// The name of a user, or the number where there is none.
[[nodiscard]] std::string nameOfUser(uid_t user);

}  // namespace ravelin::check
