#pragma once

#include "platform/posix/FolderAccess.h"

namespace ravelin::platform {

/// Goes from folder to folder by what every POSIX system has. Another file system is known by its
/// device, and only folders are taken for places where one may be mounted. A file system that hangs
/// may be waited for.
class StepwiseAccess final : public FolderAccess {
 public:
  [[nodiscard]] Descriptor openFolder(const std::string& path) const override;
  [[nodiscard]] Descriptor enter(int folder, const std::string& name) const override;
  [[nodiscard]] FoundItem find(int folder, const std::string& name) const override;
  [[nodiscard]] Descriptor openFound(int folder, const std::string& name,
                                     const FoundItem& item) const override;
};

}  // namespace ravelin::platform
