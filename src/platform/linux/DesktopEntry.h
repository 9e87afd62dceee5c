#pragma once

#include <string>
#include <string_view>

namespace ravelin::platform {

/// A shortcut as a file of a Linux desktop: a desktop entry that links to a URL.
struct DesktopEntry {
  /// The first line of every shortcut, by which the shortcut's MIME type is told from other files.
  static constexpr std::string_view MAGIC = "# Ravelin Disk shortcut";

  std::string name;  ///< what people see
  std::string url;

  /// The file's content. Whatever the values hold, each stands in a line of its own, escaped, and
  /// adds no other line. Neither may hold a NUL, for which the format has no form.
  [[nodiscard]] std::string text() const;
};

}  // namespace ravelin::platform
