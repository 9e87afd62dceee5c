#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "Announcement.h"

namespace ravelin::announce {

/// What the command line asks for.
struct Options {
  std::variant<Announcement, std::string> content;  ///< a text is sent as it is
  std::string host;
  std::uint16_t port = 0;
  std::optional<std::string> interface;  ///< the outgoing one, by name or address
  std::optional<std::uint8_t> timeToLive;
  std::optional<std::uint32_t> disks;  ///< so many numbered disks; absent: one without number
  std::uint32_t perSecond = 200;
  std::optional<std::chrono::nanoseconds> every;  ///< absent: one round
  bool quiet = false;
};

}  // namespace ravelin::announce
