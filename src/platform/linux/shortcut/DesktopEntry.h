#pragma once

#include <string>
#include <string_view>

#include "base/Text.h"

namespace ravelin::platform {

/// A shortcut as a file of a Linux desktop: a desktop entry that links to a URL.
struct DesktopEntry {
  /// The first line of every shortcut, by which the shortcut's MIME type is told from other files.
  static constexpr std::string_view MAGIC = "# Ravelin Disk shortcut";

  /// Whether the file with this content is a shortcut: its first line is the magic one. The part
  /// that is as long as the magic line with its end decides.
  [[nodiscard]] static bool isShortcut(std::string_view text);

  std::string name;  ///< what people see
  std::string url;

  /// The file's content. Whatever the values hold, each stands in a line of its own, escaped, and
  /// adds no other line. Neither may hold a NUL, for which the format has no form.
  [[nodiscard]] std::string text() const;

  /// The content of a shortcut with another icon: the name of a themed one, or the path of a
  /// picture. Null when the content is not that of a shortcut.
  [[nodiscard]] static Text withIcon(std::string_view text, std::string_view icon);
};

}  // namespace ravelin::platform
