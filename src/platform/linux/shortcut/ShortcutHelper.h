#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/Service.h"

namespace ravelin::platform {

/// The short-lived helper program that decodes pictures and keeps the metadata of the desktop's
/// files, so that the libraries for it, and whatever a broken picture does to them, stay out of
/// this process. The image reader and the workspace work through it: while it pauses, no new
/// picture is read, and no file manager is told of an icon. It is used through
/// service<ShortcutHelper>(). Main thread. (Trash runs the same program.)
class ShortcutHelper {
 public:
  /// The program's name.
  static constexpr const char* NAME = "ravelin-disk-shortcut-helper";

  using Duration = std::chrono::milliseconds;

  /// Stops waiting for the helper when it takes longer than the limit, and then does not run it for
  /// the pause, so that one that hangs every time does not delay the caller every time.
  explicit ShortcutHelper(Duration limit = std::chrono::seconds(3),
                          Duration pause = std::chrono::minutes(1))
      : _limit(limit), _pause(pause) {}

  /// Runs the helper with the arguments. Returns whether it succeeded; null when there is no
  /// result: it pauses, took too long, crashed, or is not installed.
  std::optional<bool> run(const std::vector<std::string>& arguments);

 private:
  const Duration _limit;
  const Duration _pause;
  std::optional<std::chrono::steady_clock::time_point> _hungAt;
};

template <>
ShortcutHelper& native<ShortcutHelper>();

}  // namespace ravelin::platform
