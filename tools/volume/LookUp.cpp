#include "LookUp.h"

#include <algorithm>
#include <string>

#include "base/AsciiCase.h"
#include "common/InQuotes.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/Volumes.h"

namespace ravelin::volume {

namespace {

using platform::MountedShare;

bool isSame(const MountedShare& mounted, const Disk& disk) {
  return mounted.server == textOrNull(disk.ipAddress()) &&
         equalButForCase(mounted.share, textOrNull(disk.label()));
}

std::string nameOf(const std::string& server, const std::string& share) {
  return inQuotes(share).append(" of ").append(server);
}

}  // namespace

LookUp lookUp(const Disk& disk) {
  const Text path = DiskManager::getMountedDiskMountDirectory(disk);
  const auto shares = platform::service<platform::Volumes>().mountedShares();
  const auto isThere = [&](const MountedShare& mounted) { return mounted.rootPath == path; };
  const auto isAsked = [&](const MountedShare& mounted) { return isSame(mounted, disk); };
  const auto asked = std::ranges::find_if(shares, isAsked);
  const bool isRight = std::ranges::any_of(
      shares, [&](const MountedShare& mounted) { return isThere(mounted) && isAsked(mounted); });
  if (isRight || (!path && asked == shares.end())) {
    return {.path = path, .failure = std::nullopt};
  }
  const std::string sought = nameOf(textOrNull(disk.ipAddress()), textOrNull(disk.label()));
  const auto there = std::ranges::find_if(shares, isThere);
  std::string message = "nothing is done: where " + sought + " is looked for, ";
  if (!path) {
    message.append("nothing is found");
  } else if (there == shares.end()) {
    message.append(*path).append(" is found, which is the place of no share");
  } else {
    message.append(nameOf(there->server, there->share)).append(" is found at ").append(*path);
  }
  if (asked != shares.end()) {
    message.append("; it is mounted at ").append(asked->rootPath);
  }
  return {.path = path, .failure = Failure{OTHER_SHARE, message}};
}

}  // namespace ravelin::volume
