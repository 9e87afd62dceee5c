#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/Service.h"

namespace ravelin::platform {

/// The short-lived helper program that decodes pictures and keeps the metadata of the desktop's
/// files, so that the libraries for it, and whatever a broken picture does to them, stay out of
/// this process. The image reader and the workspace work through it: while it is let alone, no
/// picture that is not known yet is read, and no file manager told of an icon. Whoever wants it
/// asks for service<ShortcutHelper>(). Main thread. (Trash runs the same program.)
class ShortcutHelper {
 public:
  /// The program, beside this one.
  static constexpr const char* NAME = "ravelin-disk-shortcut-helper";

  using Duration = std::chrono::milliseconds;

  /// Gives the helper up when it takes longer than the limit, and then lets it alone for the pause,
  /// so that one that hangs every time does not hold up the caller every time.
  explicit ShortcutHelper(Duration limit = std::chrono::seconds(3),
                          Duration pause = std::chrono::minutes(1))
      : _limit(limit), _pause(pause) {}

  /// Runs the helper with the arguments. What it said when it ran to its end; null when it said
  /// nothing: it was let alone, took too long, crashed, or is not installed.
  std::optional<bool> run(const std::vector<std::string>& arguments);

 private:
  const Duration _limit;
  const Duration _pause;
  std::optional<std::chrono::steady_clock::time_point> _hungAt;
};

template <>
ShortcutHelper& native<ShortcutHelper>();

}  // namespace ravelin::platform
