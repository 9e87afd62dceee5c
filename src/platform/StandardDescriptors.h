#pragma once

namespace ravelin::platform {

/// Opens descriptors 0 to 2 on the null device where the process was started without them, so that
/// none of its own files and sockets becomes what it reads and writes as standard input, output or
/// error. At the very start of `main`. Does nothing where there is no null device.
void openStandardDescriptors();

}  // namespace ravelin::platform
