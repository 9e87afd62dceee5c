#pragma once

#include <cstdint>
#include <string>

namespace ravelin::fakes {

/// The system itself, while this lives: its version, the functions that its libraries export, and
/// its standard folders. These are in the home folder of the environment and in "/Library", but for
/// the support folders of a TemporaryHome, which are where that has them. One at a time.
class FakeSystem {
 public:
  FakeSystem();
  ~FakeSystem();
  FakeSystem(const FakeSystem&) = delete;
  FakeSystem& operator=(const FakeSystem&) = delete;

  /// The version that the process is told; 11.0.0 at first.
  void setVersion(long major, long minor, long patch);

  /// What Gestalt says, and the error that it returns with it; 0x10B0 and none at first.
  void setGestalt(std::int32_t version, std::int16_t error = 0);

  /// From now on no library has the function, whatever its header says.
  void lose(const std::string& function);

  /// The folder in which the machine-wide ones are ("/Library" at first).
  void setLibrary(const std::string& folder);

  /// From now on there are no standard folders.
  void loseFolders();
};

}  // namespace ravelin::fakes
