#pragma once

#include <fcntl.h>

#include <string>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

/// How a file is opened that may be none; without O_NONBLOCK a named pipe would be waited for.
inline constexpr int READING = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// Opens for reading the very file that the descriptor, which need not be good for that, stands
/// for.
inline Descriptor openForReading(const Descriptor& file) {
  return Descriptor(::open(("/proc/self/fd/" + std::to_string(file.number())).c_str(), READING));
}

}  // namespace ravelin::platform
