#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"

namespace ravelin::platform {

/// The script that stores a shortcut application on the desktop, which opens a share as guest.
struct ShortcutScript {
  Text ipAddress;
  Text encodedLabel;  ///< the label escaped for a URL; absent when it cannot be escaped
  Text label;         ///< names the application, not escaped
  /// The desktop folder, where it is known already; AppleScript looks it up itself.
  Text desktop = std::nullopt;

  /// The AppleScript, to the letter; an absent value stands in it as "(null)".
  [[nodiscard]] std::string source() const;

  /// The values that are put into the source, in the form in which they stand there.
  [[nodiscard]] std::vector<std::string> insertedValues() const;

  /// The URL that the shortcut opens.
  [[nodiscard]] std::string url() const;
};

}  // namespace ravelin::platform
