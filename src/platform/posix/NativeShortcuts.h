#pragma once

#include <optional>
#include <string>

#include "platform/FileManager.h"
#include "platform/posix/BeneathResolver.h"

namespace ravelin::platform {

/// What each system has of its own for its shortcuts. Names are single components of the folder.
/// Where an int is returned, it is an error number, or 0 on success. Any thread.
class NativeShortcuts {
 public:
  virtual ~NativeShortcuts() = default;

  /// Whether what was found under the name has the mark of a shortcut. The item is there and may be
  /// anything; one that cannot be read has none. What is opened for that stays with the item.
  [[nodiscard]] virtual bool isShortcut(int folder, const std::string& name,
                                        FoundItem& item) const = 0;

  /// Gives the mark to a file that nobody else knows yet, where the mark is not a part of the
  /// content.
  [[nodiscard]] virtual int mark(int folder, const std::string& name) const = 0;

  /// Renames an item where nothing has the new name; EEXIST where something has, ENOSYS where there
  /// is no such renaming here.
  [[nodiscard]] virtual int renameIfFree(int folder, const std::string& from,
                                         const std::string& to) const = 0;

  /// Has two items exchange their names in one step; ENOSYS where there is no such renaming here.
  [[nodiscard]] virtual int exchange(int folder, const std::string& one,
                                     const std::string& other) const = 0;

  /// Removes a shortcut for good. Where a shortcut may be a folder, this takes it with its content,
  /// in which no link is followed.
  [[nodiscard]] virtual int remove(int folder, const std::string& name) const = 0;

  /// Moves the item, which was found at the place, to the user's trash; nothing else, also where
  /// folders or links are moved about meanwhile. Null when it has left its place. May take some
  /// seconds.
  [[nodiscard]] virtual std::optional<FileError> moveToTrash(const BeneathResolver::Place& place,
                                                             const FoundItem& item) = 0;
};

}  // namespace ravelin::platform
