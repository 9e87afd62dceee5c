#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <tuple>

#include "base/ThreadSafety.h"
#include "platform/FileManager.h"
#include "platform/posix/BeneathResolver.h"

namespace ravelin::platform {

/// The user's trash, from which a desktop can restore what lies in it. It is reached through the
/// helper program for shortcuts. Any thread; the caller waits for the helper, at most a few
/// seconds.
class Trash {
 public:
  /// The access must outlive this object.
  explicit Trash(const FolderAccess& access) : _access(access) {}

  /// Moves the item, which was found at the place, to the trash; nothing else, also where folders
  /// or links are moved about meanwhile. Null when it has left its place.
  /// What the trash did not take, and everything after a helper that hung, is refused for a minute
  /// without another attempt: who may name an item may not keep this process busy with it.
  std::optional<FileError> take(const BeneathResolver::Place& place, const FoundItem& item);

 private:
  using Clock = std::chrono::steady_clock;
  /// Device, number and last change of a file.
  using Identity = std::tuple<dev_t, ino_t, time_t, long>;
  struct Refusal {
    Identity identity;
    Clock::time_point end;
    FileError error;
  };

  std::optional<FileError> _refusalOf(const Identity& identity);

  const FolderAccess& _access;
  Mutex _mutex;
  std::deque<Refusal> _refusals GUARDED_BY(_mutex);
  std::optional<Refusal> _refusalOfAll GUARDED_BY(_mutex);
};

}  // namespace ravelin::platform
