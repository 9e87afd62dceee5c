#pragma once

#include <string>
#include <vector>

#include "base/Text.h"

namespace ravelin::platform {

/// The script that makes an alias of a mounted volume on the desktop, in the place of whatever has
/// its name there. When that raises an error, it is done again with the volume addressed as a plain
/// path.
struct AliasScript {
  Text aliasName;
  Text volumePath;

  /// The AppleScript, to the letter; an absent value stands in it as "(null)".
  [[nodiscard]] std::string source() const;

  /// The values that are put into the source, in the form in which they stand there.
  [[nodiscard]] std::vector<std::string> insertedValues() const;
};

}  // namespace ravelin::platform
