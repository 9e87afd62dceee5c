#pragma once

#include <string_view>

namespace ravelin::platform {

/// The number of the facility. The names are those of syslog, in any case; a name that is none
/// stands for "daemon". Any thread.
[[nodiscard]] int logFacility(std::string_view name);

}  // namespace ravelin::platform
