#pragma once

#include <string>
#include <vector>

namespace ravelin::fakes {

/// The desktop as AppKit shows it to a process, while this lives: its application services, the
/// icons of files, and the login session. One at a time. Any thread, but for the constructor.
class FakeWorkspace {
 public:
  struct Icon {
    std::string picture;  ///< the file that it was read from; empty where the icon is taken away
    std::string file;
    unsigned long options = 0;
    bool operator==(const Icon&) const = default;
  };

  FakeWorkspace();
  ~FakeWorkspace();
  FakeWorkspace(const FakeWorkspace&) = delete;
  FakeWorkspace& operator=(const FakeWorkspace&) = delete;

  /// From now on the application services do not load.
  void refuseToLoad();

  /// The icons that were set, in their order, refused ones included. A file that is not there is
  /// refused anyhow; a folder that gets an icon has the file "Icon\r" in it,
  /// with the picture's path.
  [[nodiscard]] std::vector<Icon> icons() const;

  /// From now on no icon is set.
  void refuseIcons();

  /// From now on an exception with this reason is raised instead.
  void raiseForIcons(const std::string& reason);

  /// The session comes to the front or leaves it, as with fast user switching. Who observes the
  /// workspace's own centre is told when the main thread's loop runs. A change to what is already
  /// so is none. The session is in front at first.
  void setSessionActive(bool active);

  /// The session is in the background from the start: nobody is told.
  void startInBackground();

  /// How many pictures there are in memory.
  [[nodiscard]] static int pictures();
};

}  // namespace ravelin::fakes
