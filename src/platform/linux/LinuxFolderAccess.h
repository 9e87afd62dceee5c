#pragma once

#include "platform/posix/FolderAccess.h"

namespace ravelin::platform {

/// Goes from folder to folder so that what is mounted beneath the first one is not even asked
/// anything: it may hang. The same file system mounted in a second place is another mount, too.
class LinuxFolderAccess final : public FolderAccess {
 public:
  enum class Strategy {
    kernel,   ///< the system keeps every step within bounds; where it has no such call, as below
    stepwise  ///< every step is looked at when it has been taken
  };

  explicit LinuxFolderAccess(Strategy strategy = Strategy::kernel) : _strategy(strategy) {}

  [[nodiscard]] Descriptor openFolder(const std::string& path) const override;
  [[nodiscard]] Descriptor enter(int folder, const std::string& name) const override;
  [[nodiscard]] FoundItem find(int folder, const std::string& name) const override;
  [[nodiscard]] Descriptor openFound(int folder, const std::string& name,
                                     const FoundItem& item) const override;

 private:
  [[nodiscard]] Descriptor _hold(int folder, const std::string& name) const;

  Strategy _strategy;
};

}  // namespace ravelin::platform
