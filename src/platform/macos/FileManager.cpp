#include "platform/FileManager.h"

#include "platform/macos/MacShortcuts.h"
#include "platform/posix/PosixFileManager.h"
#include "platform/posix/StepwiseAccess.h"

namespace ravelin::platform {

template <>
FileManager& native<FileManager>() {
  static const auto& access = *new StepwiseAccess;
  static auto& shortcuts = *new MacShortcuts(access);
  static auto& instance = *new PosixFileManager(access, shortcuts);
  return instance;
}

}  // namespace ravelin::platform
