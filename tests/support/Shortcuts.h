#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileManager.h"
#include "platform/Service.h"

namespace ravelin::test {

/// The content of a file that is a shortcut, with this text after its first line.
inline std::string shortcutWith(const std::string& text) {
  return std::string("# Ravelin Disk shortcut\n").append(text);
}

/// Makes a shortcut that is a file with this text, as an earlier run may have left it behind.
inline void writeShortcut(const std::filesystem::path& path, const std::string& text) {
  const auto failure = platform::native<platform::FileManager>().writeShortcutAtPath(
      path, path.parent_path(), shortcutWith(text));
  EXPECT_EQ(failure ? failure->localizedDescription : "", "") << path;
}

/// The script in a shortcut that is a script application; such a shortcut is a folder.
inline std::filesystem::path scriptOf(const std::filesystem::path& shortcut) {
  return shortcut / "Contents/Resources/Scripts/main.scpt";
}

/// What stands in the file between this beginning of a line and the text that ends it; null where
/// no line begins so.
inline std::optional<std::string> valueIn(const std::filesystem::path& file,
                                          std::string_view beginning, std::string_view end) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with(beginning) && line.ends_with(end)) {
      return line.substr(beginning.size(), line.size() - beginning.size() - end.size());
    }
  }
  return std::nullopt;
}

/// The URL that the shortcut opens, which is a desktop entry or a script application; empty when
/// there is none in it.
inline std::string urlIn(const std::filesystem::path& shortcut) {
  return (std::filesystem::is_directory(shortcut)
              ? valueIn(scriptOf(shortcut), "open location \"", "\"")
              : valueIn(shortcut, "URL=", ""))
      .value_or("");
}

/// The file of the picture that the shortcut has been given; empty where it shows that of its kind.
inline std::string pictureOf(const std::filesystem::path& shortcut) {
  if (std::filesystem::is_directory(shortcut)) {
    return valueIn(shortcut / "Icon\r", "", "").value_or("");
  }
  const std::string picture = valueIn(shortcut, "Icon=", "").value_or("none at all");
  return picture == "ravelin-disk" ? "" : picture;
}

/// Everything in the folder but folders, by path in it, with the URLs. A script application is one
/// shortcut.
inline std::map<std::string, std::string> shortcutsIn(const std::filesystem::path& folder) {
  std::map<std::string, std::string> found;
  using Walk = std::filesystem::recursive_directory_iterator;
  for (Walk entry(folder); entry != Walk(); ++entry) {
    const bool isApplication = std::filesystem::exists(scriptOf(entry->path()));
    if (isApplication || !entry->is_directory()) {
      found[entry->path().lexically_relative(folder).string()] = urlIn(entry->path());
    }
    if (isApplication) {
      entry.disable_recursion_pending();
    }
  }
  return found;
}

}  // namespace ravelin::test
