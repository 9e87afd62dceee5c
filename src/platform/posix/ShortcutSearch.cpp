#include "platform/posix/ShortcutSearch.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/FileErrors.h"
#include "platform/posix/FolderListing.h"
#include "platform/posix/TemporaryFile.h"

namespace ravelin::platform {

namespace {

constexpr std::string_view ENDING = ".app";

/// Whether an agent gives such names.
bool mayBeShortcut(const std::string& name) {
  return name.ends_with(ENDING) || TemporaryFile::isFreshName(name);
}

/// A folder to look into, by its path beneath the desktop; empty, or with a slash at its end.
struct Folder {
  std::string path;
  std::size_t depth = 0;
};

}  // namespace

ShortcutListing ShortcutSearch::beneath(const std::string& desktop) const {
  ShortcutListing listing;
  const BeneathResolver resolver(_access);
  std::size_t left = _bounds.names;
  // In this order what is near the desktop is found first, should there be too much.
  for (std::deque<Folder> folders{Folder{}}; !folders.empty(); folders.pop_front()) {
    const Folder folder = folders.front();
    // The last component stands for anything in the folder.
    const auto place = resolver.resolve(desktop + "/" + folder.path + "name", desktop);
    std::vector<FolderEntry> entries;
    const int error =
        place.error != 0 ? place.error : listFolder(place.folder.number(), entries, left);
    left -= entries.size();
    std::ranges::sort(entries, {}, &FolderEntry::name);
    for (const FolderEntry& entry : entries) {
      if (mayBeShortcut(entry.name) && _shortcuts.isShortcut(place.folder.number(), entry.name)) {
        listing.names.push_back(folder.path + entry.name);
      } else if (entry.mayBeFolder && folder.depth < _bounds.depth) {
        folders.push_back({.path = folder.path + entry.name + "/", .depth = folder.depth + 1});
      }
    }
    if (error == EOVERFLOW) {
      listing.failures.push_back({.name = folder.path, .error = {"There are too many files"}});
      break;
    }
    // What is not there, is a link or is another mount has none of ours.
    const bool hasNone = error == ENOENT || error == ENOTDIR ||
                         (!folder.path.empty() && (error == ELOOP || error == EXDEV));
    if (error != 0 && !hasNone) {
      listing.failures.push_back({.name = folder.path, .error = fileError(error)});
    }
  }
  return listing;
}

}  // namespace ravelin::platform
