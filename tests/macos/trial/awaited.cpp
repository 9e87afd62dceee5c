// The services that the macOS side does not have yet. Nothing that is run here calls them: what is
// linked along with the rest needs their names.
#include <cstdlib>

#include "platform/FileManager.h"
#include "platform/SystemPrograms.h"
#include "platform/Volumes.h"
#include "platform/scripts/ScriptRunner.h"

namespace ravelin::platform {

template <>
FileManager& native<FileManager>() {
  std::abort();
}
template <>
ScriptRunner& native<ScriptRunner>() {
  std::abort();
}
template <>
SystemPrograms& native<SystemPrograms>() {
  std::abort();
}
template <>
Volumes& native<Volumes>() {
  std::abort();
}

}  // namespace ravelin::platform
