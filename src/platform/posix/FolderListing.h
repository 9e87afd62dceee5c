#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace ravelin::platform {

/// Something that a folder holds.
struct FolderEntry {
  std::string name;
  bool mayBeFolder = true;  ///< false where the system says that it is none
};

/// Adds what the folder holds, but for itself and the one above, to the entries, at most so many of
/// it. Returns 0, or the number of the error that stopped it; EOVERFLOW where there is more. Any
/// thread.
[[nodiscard]] int listFolder(int folder, std::vector<FolderEntry>& entries,
                             std::size_t limit = std::numeric_limits<std::size_t>::max());

}  // namespace ravelin::platform
