#include <iostream>
#include <optional>
#include <string>
#include <variant>

#include "LookUp.h"
#include "Options.h"
#include "base/PathComponents.h"
#include "base/Text.h"
#include "common/Failure.h"
#include "core/DirectoryFinder.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "platform/ChildProcess.h"
#include "platform/Service.h"
#include "platform/StandardDescriptors.h"
#include "platform/Volumes.h"

namespace ravelin::volume {
namespace {

Failure failure(const std::string& message) { return {FAILED, message}; }

std::optional<Failure> print(const std::string& text) {
  std::cout << text << std::flush;
  return std::cout ? std::nullopt : std::optional(failure("cannot write to standard output"));
}

std::optional<Failure> printPlace(Disk& disk) {
  const Text path = disk.getVolumePath();
  return path ? print(*path + "\n") : failure("the share is not mounted");
}

/// By the reference of the volume, where what is mounted has one: then the system says why not.
std::optional<Failure> unmount(DiskManager& manager, Disk& disk, const Text& path) {
  if (path) {
    auto& volumes = platform::service<platform::Volumes>();
    disk.setVolumeReference(volumes.referenceOfVolume(*path));
  }
  return manager.unmountDisk(disk) ? std::nullopt
                                   : std::optional(failure("the share cannot be unmounted"));
}

std::optional<Failure> makeAlias(DiskManager& manager, Disk& disk) {
  const Text path = disk.getVolumePath();
  if (!path) {
    return failure("the share is not mounted");
  }
  if (!manager.createDesktopAliasForPath(*path)) {
    return failure("there is no alias on the desktop");
  }
  return print(textOrNull(DirectoryFinder::desktopDirectory()) + "/" + lastPathComponent(*path) +
               "\n");
}

/// What went wrong on the way is told by the log, whose copy is on standard error.
std::optional<Failure> run(const Options& options) {
  Disk disk;
  disk.setIpAddress(options.server);
  disk.setLabel(options.share);
  const LookUp found = lookUp(disk);
  if (found.failure) {
    return found.failure;
  }
  DiskManager manager;
  switch (options.command) {
    case Command::mount:
      return manager.mountDisk(disk) ? printPlace(disk) : failure("the share cannot be mounted");
    case Command::unmount:
      return unmount(manager, disk, found.path);
    case Command::where:
      return printPlace(disk);
    case Command::trial:
      return manager.isDiskMountable(disk)
                 ? std::nullopt
                 : std::optional(failure("the share cannot be mounted by command"));
    case Command::alias:
      return makeAlias(manager, disk);
  }
  return std::nullopt;
}

int conclude(const std::optional<Failure>& failure) {
  if (!failure) {
    return SUCCEEDED;
  }
  std::cerr << "ravelin-disk-volume: " << failure->message << '\n';
  return failure->status;
}

}  // namespace
}  // namespace ravelin::volume

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::volume;
  platform::openStandardDescriptors();
  auto parsed = parseOptions(count, arguments);
  if (const auto* const information = std::get_if<Information>(&parsed)) {
    return conclude(print(information->text));
  }
  if (const auto* const failure = std::get_if<Failure>(&parsed)) {
    return conclude(*failure);
  }
  try {
    return conclude(run(std::get<Options>(parsed)));
  } catch (const ravelin::platform::LaunchException& exception) {
    return conclude(Failure{FAILED, exception.what()});
  }
}
