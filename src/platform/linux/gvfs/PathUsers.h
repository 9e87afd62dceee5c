#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace ravelin::platform {

/// One process that has something beneath a path.
struct PathUser {
  pid_t process = 0;
  std::string program;  ///< its name, as far as the kernel keeps it
  /// What it is about, from the path on; empty for the path itself.
  std::string item;
  bool isOpen = false;  ///< an open file or folder, else the folder or the program that it runs in
  bool operator==(const PathUser&) const = default;
};

/// The processes that have a file or a folder open at the path or beneath it, work in a folder
/// there or run a program from there: one entry for each, by the numbers of the processes. The
/// calling process is left out, and so are those that its user may not look into. The path is
/// absolute and without links. Only the kernel is asked, never the file system, so a server that
/// does not answer does not hold it up. Any thread.
///
/// A mapping of a file that has been closed is not seen: the list of mappings cannot be read while
/// its process waits for the server. Files of GVfs cannot be mapped for writing.
[[nodiscard]] std::vector<PathUser> usersOf(std::string_view path);

/// Who they are and what they have there, for people; only the first ones by name.
[[nodiscard]] std::string described(const std::vector<PathUser>& users);

}  // namespace ravelin::platform
