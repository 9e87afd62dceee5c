#include "disk/DiskManager.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/AsciiCase.h"
#include "base/PathComponents.h"
#include "base/PercentEscaping.h"
#include "base/TextSearch.h"
#include "base/Utf8.h"
#include "core/Constants.h"
#include "core/DirectoryFinder.h"
#include "core/Logger.h"
#include "disk/AliasData.h"
#include "platform/FileManager.h"
#include "platform/RunLoop.h"
#include "platform/Service.h"
#include "platform/SystemPrograms.h"
#include "platform/Volumes.h"
#include "platform/scripts/AliasScript.h"
#include "platform/scripts/ScriptRunner.h"

namespace ravelin {

using platform::ChildResult;
using platform::MountListing;
using platform::service;

namespace {

/// The exit status of the mounting program when an earlier mount is in the way.
constexpr int MOUNT_IN_THE_WAY = 64;

platform::SystemPrograms& programs() { return service<platform::SystemPrograms>(); }

platform::Volumes& volumes() { return service<platform::Volumes>(); }

void log(const std::string& message) { Logger::logMessage(message, LogTypeInfo); }

Text decoded(const std::string& output) { return isUtf8(output) ? Text(output) : std::nullopt; }

/// The text without its last character.
std::string_view withoutLastCharacter(std::string_view text) {
  constexpr unsigned char CONTINUATION_MASK = 0xC0;
  constexpr unsigned char CONTINUATION = 0x80;
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.back());
    text.remove_suffix(1);
    if ((byte & CONTINUATION_MASK) != CONTINUATION) {
      break;
    }
  }
  return text;
}

/// The end of the stretch without case in which all these bytes of the text lie; 0 where they lie
/// in none.
std::size_t endOfCaseless(const MountListing& listing, std::size_t begin, std::size_t size) {
  const auto next =
      std::ranges::upper_bound(listing.caseless, begin, {}, &MountListing::Stretch::begin);
  if (next == listing.caseless.begin()) {
    return 0;
  }
  const auto stretch = std::prev(next);
  const std::size_t end = stretch->begin + stretch->size;
  return begin + size <= end ? end : 0;
}

/// The text of the listing. Where a source of a share is the sought one but for its case, that may
/// be lost, so it is written as it is sought, once in each.
std::string textSpelling(std::string_view sought, MountListing listing) {
  // An address has no letters, so that most places are passed over at the speed of a plain search.
  const std::string_view beginning(sought.begin(), std::ranges::find_if(sought, isAsciiLetter));
  const TextSearch search(beginning);
  std::string& text = listing.text;
  for (std::size_t at = 0; (at = search.in(text, at)) != std::string::npos && at < text.size();) {
    const bool isAlike = equalButForCase(std::string_view(text).substr(at, sought.size()), sought);
    const std::size_t end = isAlike ? endOfCaseless(listing, at, sought.size()) : 0;
    if (end != 0) {
      text.replace(at, sought.size(), sought);
    }
    at = end == 0 ? at + 1 : end;
  }
  return std::move(text);
}

/// The mount point in the rest of a listing behind a share's source; null where there is none.
Text mountPointIn(std::string_view rest) {
  const std::size_t begin = rest.find('/');
  if (begin == std::string_view::npos) {
    return std::nullopt;
  }
  rest.remove_prefix(begin);
  const std::size_t end = rest.find('(');
  return end == std::string_view::npos
             ? std::nullopt
             : Text(std::string(withoutLastCharacter(rest.substr(0, end))));
}

/// Whether something stands at the path; a link counts also where it leads to nothing.
bool itemExists(const Text& path, const Text& desktop) {
  auto& files = service<platform::FileManager>();
  return path && (files.fileExistsAtPath(*path) || files.itemExistsAtPath(*path, desktop));
}

}  // namespace

bool DiskManager::mountDisk(Disk& disk) {
  return _getMountPathForDiskIfAlreadyMounted(disk) || _coreServicesMountDisk(disk);
}

bool DiskManager::isDiskMountable(const Disk& disk) {
  if (getMountedDiskMountDirectory(disk)) {
    return true;
  }
  if (!_shellMountDisk(disk)) {
    return false;
  }
  _shellUnmountDisk(disk);
  return true;
}

bool DiskManager::_coreServicesMountDisk(Disk& disk) {
  const std::string url = "smb://" + textOrNull(disk.ipAddress()) + "/" +
                          textOrNull(_mountOperationEncodeURL(disk.label()));
  const auto mount = volumes().mountServerVolume(url, "guest", "");
  disk.setVolumeReference(mount.reference);
  log("FSMountServerVolumeSync (" + textOrNull(disk.label()) +
      ") result:" + std::to_string(mount.status) + "=" + mount.comment);
  return mount.status == 0;
}

bool DiskManager::_shellMountDisk(const Disk& disk) {
  const std::string directory = DirectoryFinder::diskMountDirectory(disk.label());
  programs().mkdir(directory);
  const std::string server = textOrNull(disk.ipAddress());
  const std::string share = textOrNull(_mountOperationEncodeURL(disk.label()));
  for (int attempt = 1; attempt <= SHELL_MOUNT_RETRY_COUNT; ++attempt) {
    const ChildResult result = programs().mountGuestShare(server, share, directory);
    const std::string task =
        "MountTask (" + textOrNull(disk.label()) + " Try:" + std::to_string(attempt);
    if (result.terminationStatus == 0) {
      log(task + ") successful.");
      return true;
    }
    const Text output = decoded(result.output);
    if (result.terminationStatus == MOUNT_IN_THE_WAY ||
        (output && output->find("File exists") != std::string::npos)) {
      log(task + ") Error: " + textOrNull(output) + ".");
      _shellUnmountAlreadyMountedVolume(disk);
    } else {
      log(task + " termination Status " + std::to_string(result.terminationStatus) +
          ") result:" + textOrNull(output));
    }
  }
  return false;
}

Text DiskManager::getMountedDiskMountDirectory(const Disk& disk) {
  return _getMountPathForDiskIfAlreadyMounted(disk);
}

Text DiskManager::_getMountPathForDiskIfAlreadyMounted(const Disk& disk) {
  const std::string sought =
      textOrNull(disk.ipAddress()) + "/" + textOrNull(_mountOperationEncodeURL(disk.label()));
  const std::string listing = textSpelling(sought, programs().mountTableAbout(sought));
  const std::size_t found = isUtf8(listing) ? TextSearch(sought).in(listing) : std::string::npos;
  return found == std::string::npos
             ? std::nullopt
             : mountPointIn(std::string_view(listing).substr(found + sought.size()));
}

Text DiskManager::_mountOperationEncodeURL(const Text& string) {
  return string ? addingPercentEscapes(*string) : std::nullopt;
}

bool DiskManager::unmountDisk(const Disk& disk) {
  if (_coreServicesUnmountDisk(disk)) {
    return true;
  }
  const Text path = _getMountPathForDiskIfAlreadyMounted(disk);
  return path && _shellUnMountDiskAtPath(*path);
}

bool DiskManager::_coreServicesUnmountDisk(const Disk& disk) {
  const auto unmount = volumes().unmountVolume(disk.volumeReference());
  log("FSUnmountVolumeSync (" + textOrNull(disk.label()) +
      ") result:" + std::to_string(unmount.status) + "=" + unmount.comment);
  return unmount.status == 0 || !disk.doesVolumeExist();
}

bool DiskManager::_shellUnMountDiskAtPath(const std::string& path) {
  const bool done = programs().umount(path).terminationStatus == 0;
  log("_shellUnMountDiskAtPath (" + path + (done ? ") successful" : ") failure"));
  return done;
}

bool DiskManager::_shellUnmountAlreadyMountedVolume(const Disk& disk) {
  const Text path = _getMountPathForDiskIfAlreadyMounted(disk);
  if (!path) {
    log("_shellUnmountAlreadyMountedVolume: (" + textOrNull(path) +
        ") appears to be unmounted already.");
    return true;
  }
  return _shellUnMountDiskAtPath(*path);
}

bool DiskManager::_shellUnmountDisk(const Disk& disk) {
  const std::string directory = DirectoryFinder::diskMountDirectory(disk.label());
  if (!_shellUnMountDiskAtPath(directory)) {
    return false;
  }
  programs().rmdir(directory);
  return true;
}

bool DiskManager::createDesktopAliasForPath(const std::string& path) {
  const std::string name = lastPathComponent(path);
  const Text desktop = DirectoryFinder::desktopDirectory();
  // The root and the empty path have no name of their own to append.
  const Text item = !desktop || name.empty() || name == "/" ? desktop : *desktop + "/" + name;
  if (itemExists(item, desktop)) {
    return true;
  }
  AliasData data;
  data.setAliasName(name);
  data.setVolumePath(path);
  platform::RunLoop::main().performAndWait([&] { _makeAliasWithData(data); });
  return itemExists(item, desktop);
}

bool DiskManager::_makeAliasWithData(const AliasData& data) {
  const platform::AliasScript script{data.aliasName(), data.volumePath()};
  if (service<platform::ScriptRunner>().run(script)) {
    Logger::logMessage("Alias has been created at desktop.", LogTypeInfo);
    return true;
  }
  Logger::logMessage("Could not create the alias file.", LogTypeError);
  return false;
}

}  // namespace ravelin
