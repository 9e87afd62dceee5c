#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Finding.h"
#include "GroupAddress.h"
#include "base/Text.h"
#include "core/Configuration.h"

namespace ravelin::check {

/// Where devices send announcements to, by a pair of the configuration.
struct Target {
  Text group;  ///< in its usual form; null where none is joined
  std::uint16_t port = 0;

  [[nodiscard]] std::string described() const {
    return (group ? "group " + *group + ", " : "") + "port " + std::to_string(port);
  }

  [[nodiscard]] Details details() const {
    Details details{{"port", std::to_string(port)}};
    if (group) {
      details["group"] = *group;
    }
    return details;
  }
};

/// Those of the configuration that can be had.
inline std::vector<Target> targetsOf(const Configuration& configuration) {
  std::vector<Target> targets;
  for (const Configuration::Entry& entry : configuration.multicastAddresses) {
    if (isPort(entry.port)) {
      targets.push_back(
          {.group = configuration.joinIGMP ? groupReadFrom(entry.group) : std::nullopt,
           .port = static_cast<std::uint16_t>(entry.port)});
    }
  }
  return targets;
}

}  // namespace ravelin::check
