#include "platform/macos/FileSystemVolumes.h"

#include "platform/macos/CoreFoundationText.h"
#include "platform/macos/MountList.h"
#include "platform/macos/Owned.h"
#include "platform/macos/SystemFunction.h"

namespace ravelin::platform {

namespace {

/// The services, each as the system exports it.
struct Services {
  decltype(FSMountServerVolumeSync)* mount =
      systemFunction<decltype(FSMountServerVolumeSync)>("FSMountServerVolumeSync");
  decltype(FSUnmountVolumeSync)* unmount =
      systemFunction<decltype(FSUnmountVolumeSync)>("FSUnmountVolumeSync");
  decltype(FSCopyURLForVolume)* copyUrl =
      systemFunction<decltype(FSCopyURLForVolume)>("FSCopyURLForVolume");
  decltype(FSGetVolumeInfo)* info = systemFunction<decltype(FSGetVolumeInfo)>("FSGetVolumeInfo");
  decltype(CFURLCreateFromFSRef)* urlOf =
      systemFunction<decltype(CFURLCreateFromFSRef)>("CFURLCreateFromFSRef");
  decltype(GetMacOSStatusCommentString)* comment =
      systemFunction<decltype(GetMacOSStatusCommentString)>("GetMacOSStatusCommentString");

  [[nodiscard]] bool areComplete() const {
    return mount != nullptr && unmount != nullptr && copyUrl != nullptr && info != nullptr &&
           urlOf != nullptr;
  }
};

const Services& services() {
  static const Services found;
  return found;
}

std::string commentOn(OSStatus status) {
  const char* const comment = services().comment != nullptr ? services().comment(status) : nullptr;
  return comment != nullptr ? comment : "";
}

Text pathOf(CFURLRef url) {
  return url == nullptr
             ? std::nullopt
             : textOf(Owned<CFStringRef>(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle)).get());
}

/// The volume at this index, counted from 1, and its number; null behind the last one.
struct Entry {
  Volume volume;
  FSVolumeRefNum number = 0;
};
std::optional<Entry> entryAt(ItemCount index) {
  Entry entry;
  HFSUniStr255 name{};
  FSRef root{};
  if (services().info(0, index, &entry.number, kFSVolInfoNone, nullptr, &name, &root) != 0) {
    return std::nullopt;
  }
  const Owned<CFStringRef> text(
      CFStringCreateWithCharacters(kCFAllocatorDefault, name.unicode, name.length));
  const Owned<CFURLRef> url(services().urlOf(kCFAllocatorDefault, &root));
  entry.volume = {.name = textOf(text.get()).value_or(""),
                  .rootPath = pathOf(url.get()).value_or("")};
  return entry;
}

}  // namespace

bool FileSystemVolumes::areHere() { return services().areComplete(); }

ServerVolumeMount FileSystemVolumes::mountServerVolume(const std::string& url,
                                                       const std::string& user,
                                                       const std::string& password) {
  const auto share = cfUrlOf(url);
  FSVolumeRefNum reference = 0;
  // Without an address it fails, and says how.
  const OSStatus status = services().mount(share.get(), nullptr, cfStringOf(user).get(),
                                           cfStringOf(password).get(), &reference, 0);
  return {.status = status,
          .comment = commentOn(status),
          .reference = status == 0 ? reference : std::int16_t{0}};
}

VolumeOutcome FileSystemVolumes::unmountVolume(std::int16_t reference) {
  pid_t dissenter = 0;
  const OSStatus status = services().unmount(reference, 0, &dissenter);
  return {.status = status, .comment = commentOn(status)};
}

std::int16_t FileSystemVolumes::referenceOfVolume(const std::string& path) {
  for (ItemCount index = 1;; ++index) {
    const auto entry = entryAt(index);
    if (!entry || entry->volume.rootPath == path) {
      return entry ? entry->number : std::int16_t{0};
    }
  }
}

Text FileSystemVolumes::pathOfVolume(std::int16_t reference) {
  CFURLRef url = nullptr;
  services().copyUrl(reference, &url);
  return pathOf(Owned<CFURLRef>(url).get());
}

std::vector<Volume> FileSystemVolumes::volumes() {
  std::vector<Volume> volumes;
  for (ItemCount index = 1;; ++index) {
    auto entry = entryAt(index);
    if (!entry) {
      return volumes;
    }
    volumes.push_back(std::move(entry->volume));
  }
}

std::vector<MountedShare> FileSystemVolumes::mountedShares() { return MountList::shares(); }

}  // namespace ravelin::platform
