#pragma once

#include <string>
#include <vector>

namespace ravelin::platform {

/// The script that has the desktop's owner delete an item of the desktop folder, if it is there.
struct RemovalScript {
  std::string fileName;

  /// The AppleScript, to the letter.
  [[nodiscard]] std::string source() const;

  /// The values that are put into the source.
  [[nodiscard]] std::vector<std::string> insertedValues() const;
};

}  // namespace ravelin::platform
