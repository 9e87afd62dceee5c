#include "platform/Volumes.h"

#include "platform/macos/FileSystemVolumes.h"
#include "platform/macos/NetworkVolumes.h"

namespace ravelin::platform {

template <>
Volumes& native<Volumes>() {
  static Volumes& instance = FileSystemVolumes::areHere()
                                 ? static_cast<Volumes&>(*new FileSystemVolumes)
                                 : *new NetworkVolumes;
  return instance;
}

}  // namespace ravelin::platform
