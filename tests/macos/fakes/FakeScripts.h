#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ravelin::fakes {

/// AppleScript and the Finder, while this lives. Scripts are kept as they come, and run without
/// error; none is understood but, when that is wanted, what it does on the desktop. While there is
/// none of these, scripts do what they do to the desktop of the home folder. One at a time; main
/// thread.
class FakeScripts {
 public:
  FakeScripts();
  ~FakeScripts();
  FakeScripts(const FakeScripts&) = delete;
  FakeScripts& operator=(const FakeScripts&) = delete;

  /// The sources that were run, in their order.
  [[nodiscard]] std::vector<std::string> sources() const;

  /// From now on scripts do to this folder what they do to the desktop: a script that is stored
  /// becomes a bundle, which is a folder with files in it, where nothing is there yet; what is
  /// deleted moves into the home folder's trash, or a TemporaryHome's; an alias is a file. What
  /// fails there fails the run.
  void setDesktop(const std::string& desktop);

  /// From now on the Finder does nothing, as when the user has not allowed it: every run fails with
  /// this number and message.
  void refuse(int number, const std::string& message);

  /// From now on the trash does this with the item at a path in place of moving it, and says
  /// whether it has been moved.
  void setTrash(std::function<bool(const std::string& path)> action);

  /// Called in every run, before anything else. A script that waits for an answer runs the thread's
  /// loop meanwhile (see spinRunLoop).
  void setDuring(std::function<void()> action);
};

}  // namespace ravelin::fakes
