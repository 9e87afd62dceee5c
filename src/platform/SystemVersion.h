#pragma once

#include <cstdint>

#include "platform/Service.h"

namespace ravelin::platform {

/// The version of the system, in the terms of the desktop system that is the agent's home.
class SystemVersion {
 public:
  virtual ~SystemVersion() = default;

  /// The version packed as hexadecimal digits (0x1060 for 10.6.0), or 0 when it cannot be found
  /// out. Another system than that one returns the version whose behaviour it shares. Any
  /// thread.
  virtual std::int32_t gestaltSystemVersion() = 0;
};

template <>
SystemVersion& native<SystemVersion>();

}  // namespace ravelin::platform
