#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "LookUp.h"
#include "base/InternetAddress.h"
#include "base/PathComponents.h"
#include "base/Text.h"
#include "common/CommandLine.h"
#include "common/Failure.h"
#include "core/DirectoryFinder.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/StandardDescriptors.h"
#include "platform/Volumes.h"

namespace ravelin::volume {
namespace {

constexpr std::string_view PURPOSE =
    R"(Mounts the share of a network device as guest, as the agent would. COMMAND is one of these:

  mount    mounts the share, unless it is mounted, and prints where its files are
  unmount  takes the share off the system
  where    prints where the files of the mounted share are
  try      mounts the share by command, as root, and unmounts it again
  alias    puts a link to the mounted share on the desktop, and prints its path
)";

enum class Command { mount, unmount, where, trial, alias };

struct Choice {
  std::string_view name;
  Command command;
};

constexpr std::array CHOICES{
    Choice{"mount", Command::mount}, Choice{"unmount", Command::unmount},
    Choice{"where", Command::where}, Choice{"try", Command::trial},
    Choice{"alias", Command::alias},
};

/// What the command line asks for.
struct Request {
  Command command = Command::where;
  std::string server;  ///< an IPv4 address
  std::string share;
};

bool isShareName(const std::string& text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    return character >= ' ' && character <= '~' && character != '/';
  });
}

std::variant<Request, Failure> requestOf(const std::vector<std::string>& arguments) {
  if (const auto failure = failureOfCount(arguments, {"COMMAND", "SERVER", "SHARE"})) {
    return *failure;
  }
  const auto* const choice = std::ranges::find(CHOICES, arguments[0], &Choice::name);
  if (choice == CHOICES.end()) {
    return unwanted("COMMAND", "mount, unmount, where, try or alias", arguments[0]);
  }
  if (!isDottedAddress(arguments[1])) {
    return unwanted("SERVER", "an IPv4 address", arguments[1]);
  }
  if (!isShareName(arguments[2])) {
    return unwanted("SHARE", "the printable ASCII name of a share", arguments[2]);
  }
  return Request{.command = choice->command, .server = arguments[1], .share = arguments[2]};
}

Failure failure(const std::string& message) { return {FAILED, message}; }

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
std::optional<Failure> run(const Request& request) {
  Disk disk;
  disk.setIpAddress(request.server);
  disk.setLabel(request.share);
  const LookUp found = lookUp(disk);
  if (found.failure) {
    return found.failure;
  }
  DiskManager manager;
  switch (request.command) {
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

}  // namespace
}  // namespace ravelin::volume

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::volume;
  platform::openStandardDescriptors();
  CommandLine line("ravelin-disk-volume", {"COMMAND SERVER SHARE"}, PURPOSE);
  line.argument("SERVER", "the IPv4 address of the device");
  line.argument("SHARE", "the label of its disk");
  return line.run(count, arguments,
                  [](const std::vector<std::string>& words) -> std::optional<Failure> {
                    const auto request = requestOf(words);
                    if (const auto* const failure = std::get_if<Failure>(&request)) {
                      return *failure;
                    }
                    return volume::run(std::get<Request>(request));
                  });
}
