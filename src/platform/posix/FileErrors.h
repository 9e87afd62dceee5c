#pragma once

#include <system_error>

#include "platform/FileManager.h"

namespace ravelin::platform {

/// The system's description of an error number.
inline FileError fileError(int number) { return {std::generic_category().message(number)}; }

}  // namespace ravelin::platform
