#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/ThreadSafety.h"
#include "platform/FileManager.h"
#include "platform/posix/BeneathResolver.h"
#include "platform/posix/NativeShortcuts.h"

namespace ravelin::platform {

/// The shortcuts among the files of a desktop, which are told from the rest by the system's mark.
/// Whatever else there is belongs to the user: it is never removed or replaced here, even where it
/// comes into a shortcut's place in the very moment of a removal. Any thread.
class ShortcutFiles {
 public:
  using Place = BeneathResolver::Place;

  /// Both must outlive this object.
  ShortcutFiles(const FolderAccess& access, NativeShortcuts& native)
      : _access(access), _native(native) {}

  /// Whether there is something at the place, also something mounted.
  [[nodiscard]] bool exists(const Place& place) const;

  /// Whether it is a shortcut that has this name in the folder, or what an agent that was killed
  /// has left of one: a file of a name that only such files have.
  [[nodiscard]] bool isShortcut(int folder, const std::string& name) const;

  /// Removes the shortcut at the place, or what is left of one. Null on success.
  std::optional<FileError> remove(const Place& place);

  /// Removes what is at the place: a shortcut for good, anything else to the user's trash. Null
  /// when the place is free.
  std::optional<FileError> makeWay(const Place& place);

  /// Puts a shortcut that is a file with this content into the place, which is free or has a
  /// shortcut. Null on success.
  std::optional<FileError> store(const Place& place, std::string_view content);

 private:
  enum class Kind { nothing, shortcut, foreign };
  struct Item {
    Kind kind = Kind::nothing;
    FoundItem found;
    FileError error;  ///< why it cannot be removed, where it is no shortcut
  };

  enum class Accept { shortcuts, remainsToo };

  [[nodiscard]] static Accept _acceptedUnder(const std::string& name);
  [[nodiscard]] Item _lookAt(int folder, const std::string& name,
                             Accept accept = Accept::shortcuts) const;
  [[nodiscard]] Item _lookAgainAt(int folder, const std::string& name, Item item,
                                  Accept accept) const;
  [[nodiscard]] Item _judged(int folder, const std::string& name, FoundItem found,
                             Accept accept) const;
  [[nodiscard]] int _takeAside(int folder, const std::string& name, std::string& taken) const;
  [[nodiscard]] int _moveIfFree(int folder, const std::string& from, const std::string& to) const;
  void _putBack(int folder, const std::string& from, const std::string& to) const;
  std::optional<FileError> _removeShortcut(const Place& place, Item item) EXCLUDES(_removal);
  std::optional<FileError> _removeShortcutLocked(const Place& place, Item item,
                                                 Accept accept = Accept::shortcuts)
      REQUIRES(_removal);

  const FolderAccess& _access;
  NativeShortcuts& _native;
  /// So that a removal at the end of the process waits for one of another thread.
  Mutex _removal;
};

}  // namespace ravelin::platform
