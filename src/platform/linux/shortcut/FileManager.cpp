#include "platform/FileManager.h"

#include "platform/Service.h"
#include "platform/linux/LinuxFolderAccess.h"
#include "platform/linux/shortcut/LinuxShortcuts.h"
#include "platform/posix/PosixFileManager.h"

namespace ravelin::platform {

template <>
FileManager& native<FileManager>() {
  static const auto& access = *new LinuxFolderAccess;
  static auto& shortcuts = *new LinuxShortcuts(access);
  static auto& instance = *new PosixFileManager(access, shortcuts);
  return instance;
}

}  // namespace ravelin::platform
