#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "Announcement.h"
#include "common/Failure.h"

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

/// A text that was asked for instead of sending anything.
struct Information {
  std::string text;
};

/// Reads the arguments of main(), which may get another order. Once in a process.
std::variant<Options, Information, Failure> parseOptions(int count, char** arguments);

}  // namespace ravelin::announce
