#include "FakeVolumes.h"

#include <CoreServices/CoreServices.h>
#include <NetFS/NetFS.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "CoreFoundationObjects.h"
#include "SystemFunctions.h"

namespace fs = std::filesystem;

using ravelin::fakes::contentOf;
using ravelin::fakes::FakeVolumes;
using ravelin::fakes::SystemFunction;

namespace {

struct Volume {
  std::int16_t reference = 0;
  std::string name;
  std::string path;
  std::string source;
};

struct State {
  std::mutex mutex;
  std::string folder;
  std::vector<Volume> volumes;
  std::int16_t nextReference = -100;
  std::vector<FakeVolumes::Mount> mounts;
  std::int32_t mountStatus = FakeVolumes::OK;
  std::int32_t unmountStatus = FakeVolumes::OK;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

// All of these with the mutex held.

Volume* volumeBy(std::int16_t reference) {
  const auto found = std::ranges::find(state().volumes, reference, &Volume::reference);
  return found == state().volumes.end() ? nullptr : &*found;
}

std::string withoutEscapes(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    unsigned value = 0;
    if (text[at] == '%' && at + 2 < text.size() &&
        std::sscanf(std::string(text.substr(at + 1, 2)).c_str(), "%2x", &value) == 1) {
      plain += static_cast<char>(value);
      at += 2;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

/// Mounts the share that the mount names; null, and why, where it cannot be.
Volume* mount(const FakeVolumes::Mount& asked, std::int32_t& status) {
  state().mounts.push_back(asked);
  constexpr std::string_view SCHEME = "smb://";
  const std::size_t slash = asked.url.find('/', SCHEME.size());
  if (!asked.url.starts_with(SCHEME) || slash == std::string::npos ||
      slash + 1 == asked.url.size()) {
    status = FakeVolumes::BAD_PARAMETER;
    return nullptr;
  }
  status = state().mountStatus;
  if (status != FakeVolumes::OK) {
    return nullptr;
  }
  const std::string source =
      "//" + (asked.user.empty() ? "" : asked.user + ":@") + asked.url.substr(SCHEME.size());
  if (const auto same = std::ranges::find(state().volumes, source, &Volume::source);
      same != state().volumes.end()) {
    status = FakeVolumes::ALREADY_MOUNTED;
    return &*same;
  }
  const std::string name = withoutEscapes(std::string_view(asked.url).substr(slash + 1));
  std::string path = (asked.folder.empty() ? state().folder : asked.folder) + "/" + name;
  const std::string wanted = path;
  for (int number = 1; fs::exists(path); ++number) {
    path = wanted + "-" + std::to_string(number);
  }
  fs::create_directories(path);
  state().volumes.push_back(
      {state().nextReference--, fs::path(path).filename().string(), path, source});
  return &state().volumes.back();
}

std::int32_t unmountVolume(const Volume* volume) {
  if (volume == nullptr) {
    return FakeVolumes::NO_SUCH_VOLUME;
  }
  if (state().unmountStatus != FakeVolumes::OK) {
    return state().unmountStatus;
  }
  const Volume gone = *volume;
  std::erase_if(state().volumes,
                [&gone](const Volume& each) { return each.reference == gone.reference; });
  if (gone.path.starts_with(state().folder + "/")) {
    std::error_code failure;
    fs::remove(gone.path, failure);
  }
  return FakeVolumes::OK;
}

// What CoreServices has.

OSStatus mountServerVolume(CFURLRef url, CFURLRef mountDir, CFStringRef user, CFStringRef password,
                           FSVolumeRefNum* reference, OptionBits /*flags*/) {
  const std::lock_guard lock(state().mutex);
  if (url == nullptr) {
    return FakeVolumes::BAD_PARAMETER;
  }
  std::int32_t status = FakeVolumes::OK;
  const Volume* const volume = mount({.url = contentOf(url),
                                      .folder = contentOf(mountDir),
                                      .user = contentOf(user),
                                      .password = contentOf(password)},
                                     status);
  if (volume != nullptr) {
    *reference = volume->reference;
  }
  return status;
}

OSStatus unmountByReference(FSVolumeRefNum reference, OptionBits /*flags*/, pid_t* dissenter) {
  const std::lock_guard lock(state().mutex);
  const std::int32_t status = unmountVolume(volumeBy(reference));
  *dissenter = status == FakeVolumes::IN_USE ? ::getpid() : 0;
  return status;
}

OSStatus copyUrl(FSVolumeRefNum reference, CFURLRef* url) {
  const std::lock_guard lock(state().mutex);
  const Volume* const volume = volumeBy(reference);
  *url = volume == nullptr ? nullptr : ravelin::fakes::makeFileUrl(volume->path);
  return volume == nullptr ? FakeVolumes::NO_SUCH_VOLUME : FakeVolumes::OK;
}

OSErr volumeInfo(FSVolumeRefNum reference, ItemCount index, FSVolumeRefNum* actual,
                 FSVolumeInfoBitmap /*which*/, FSVolumeInfo* /*info*/, HFSUniStr255* name,
                 FSRef* root) {
  const std::lock_guard lock(state().mutex);
  const Volume* volume = index == 0 ? volumeBy(reference) : nullptr;
  if (index > 0 && index <= state().volumes.size()) {
    volume = &state().volumes[index - 1];
  }
  if (volume == nullptr) {
    return static_cast<OSErr>(FakeVolumes::NO_SUCH_VOLUME);
  }
  if (actual != nullptr) {
    *actual = volume->reference;
  }
  if (name != nullptr) {
    const std::u16string units = fs::path(volume->name).u16string();
    name->length = static_cast<UInt16>(std::min(units.size(), std::size(name->unicode)));
    std::copy_n(units.begin(), name->length, name->unicode);
  }
  if (root != nullptr) {
    std::memcpy(root->hidden, &volume->reference, sizeof volume->reference);
  }
  return 0;
}

CFURLRef urlOfRoot(CFAllocatorRef /*allocator*/, const FSRef* root) {
  std::int16_t reference = 0;
  std::memcpy(&reference, root->hidden, sizeof reference);
  CFURLRef url = nullptr;
  copyUrl(reference, &url);
  return url;
}

const char* commentOnStatus(OSStatus status) {
  switch (status) {
    case FakeVolumes::OK:
      return "no error";
    case FakeVolumes::NO_SUCH_VOLUME:
      return "no such volume";
    case FakeVolumes::IN_USE:
      return "File is busy, dirent or volume is in use";
    case FakeVolumes::BAD_PARAMETER:
      return "error in user parameter list";
    case FakeVolumes::ALREADY_MOUNTED:
      return "drive volume already on-line at MountVol";
    case FakeVolumes::CANCELLED:
      return "";
    default:
      return nullptr;
  }
}

const SystemFunction gFunctions[] = {
    {"FSMountServerVolumeSync", mountServerVolume},
    {"FSUnmountVolumeSync", unmountByReference},
    {"FSCopyURLForVolume", copyUrl},
    {"FSGetVolumeInfo", volumeInfo},
    {"CFURLCreateFromFSRef", urlOfRoot},
    {"GetMacOSStatusCommentString", commentOnStatus},
    {"NetFSMountURLSync", NetFSMountURLSync},
};

// A header that changes must not leave these behind.
static_assert(std::is_same_v<decltype(mountServerVolume), decltype(FSMountServerVolumeSync)>);
static_assert(std::is_same_v<decltype(unmountByReference), decltype(FSUnmountVolumeSync)>);
static_assert(std::is_same_v<decltype(copyUrl), decltype(FSCopyURLForVolume)>);
static_assert(std::is_same_v<decltype(volumeInfo), decltype(FSGetVolumeInfo)>);
static_assert(std::is_same_v<decltype(urlOfRoot), decltype(CFURLCreateFromFSRef)>);
static_assert(std::is_same_v<decltype(commentOnStatus), decltype(GetMacOSStatusCommentString)>);

}  // namespace

namespace ravelin::fakes {

FakeVolumes::FakeVolumes(const std::string& folder) {
  const std::lock_guard lock(state().mutex);
  state().folder = folder;
  state().mounts.clear();
}

FakeVolumes::~FakeVolumes() {
  const std::lock_guard lock(state().mutex);
  state().volumes.clear();
  state().mountStatus = OK;
  state().unmountStatus = OK;
}

std::int16_t FakeVolumes::add(const std::string& name, const std::string& path,
                              const std::string& source) {
  const std::lock_guard lock(state().mutex);
  state().volumes.push_back({state().nextReference--, name, path, source});
  return state().volumes.back().reference;
}

void FakeVolumes::takeAway(std::int16_t reference) {
  const std::lock_guard lock(state().mutex);
  std::erase_if(state().volumes,
                [reference](const Volume& each) { return each.reference == reference; });
}

void FakeVolumes::refuseMounts(std::int32_t status) {
  const std::lock_guard lock(state().mutex);
  state().mountStatus = status;
}

void FakeVolumes::refuseUnmounts(std::int32_t status) {
  const std::lock_guard lock(state().mutex);
  state().unmountStatus = status;
}

std::vector<FakeVolumes::Mount> FakeVolumes::mounts() const {
  const std::lock_guard lock(state().mutex);
  return state().mounts;
}

std::vector<std::string> FakeVolumes::mountPoints() const {
  const std::lock_guard lock(state().mutex);
  std::vector<std::string> points;
  for (const Volume& volume : state().volumes) {
    points.push_back(volume.path);
  }
  return points;
}

}  // namespace ravelin::fakes

extern "C" {

int NetFSMountURLSync(CFURLRef url, CFURLRef mountpath, CFStringRef user, CFStringRef passwd,
                      CFMutableDictionaryRef open_options, CFMutableDictionaryRef /*mount_options*/,
                      CFArrayRef* mountpoints) {
  const auto option = [open_options](CFStringRef key) {
    return open_options == nullptr ? nullptr
                                   : ravelin::fakes::valueAt(open_options, contentOf(key));
  };
  FakeVolumes::Mount asked{.url = contentOf(url),
                           .folder = contentOf(mountpath),
                           .user = contentOf(user),
                           .password = contentOf(passwd),
                           .asGuest = option(kNetFSUseGuestKey) == kCFBooleanTrue,
                           .byNetFs = true};
  if (CFTypeRef const shown = option(kNAUIOptionKey); shown != nullptr) {
    asked.mayAsk = contentOf(static_cast<CFStringRef>(shown)) != contentOf(kNAUIOptionNoUI);
  }
  const std::lock_guard lock(state().mutex);
  std::int32_t status = FakeVolumes::OK;
  const Volume* const volume = mount(asked, status);
  if (volume != nullptr && mountpoints != nullptr) {
    *mountpoints = ravelin::fakes::makeArray({volume->path});
  }
  switch (status) {
    case FakeVolumes::BAD_PARAMETER:
      return EINVAL;
    case FakeVolumes::ALREADY_MOUNTED:
      return EEXIST;
    case FakeVolumes::NO_MOUNT_POINT:
      return 0;
    default:
      return status;
  }
}

int unmount(const char* target, int /*flags*/) {
  const std::lock_guard lock(state().mutex);
  const auto found = std::ranges::find(state().volumes, std::string(target), &Volume::path);
  if (found == state().volumes.end()) {
    errno = EINVAL;
    return -1;
  }
  if (unmountVolume(&*found) != FakeVolumes::OK) {
    errno = EBUSY;
    return -1;
  }
  return 0;
}

int getfsstat(struct statfs* buf, int bufsize, int /*mode*/) {
  const std::lock_guard lock(state().mutex);
  const std::size_t room = buf == nullptr ? 0 : static_cast<std::size_t>(bufsize) / sizeof *buf;
  const std::size_t told =
      buf == nullptr ? state().volumes.size() : std::min(room, state().volumes.size());
  for (std::size_t index = 0; buf != nullptr && index < told; ++index) {
    const Volume& volume = state().volumes[index];
    struct statfs& entry = buf[index];
    std::memset(&entry, 0, sizeof entry);
    const bool isShare = volume.source.starts_with("//");
    entry.f_flags = isShare ? 0 : MNT_LOCAL;
    std::strncpy(entry.f_fstypename, isShare ? "smbfs" : "apfs", sizeof entry.f_fstypename - 1);
    std::strncpy(entry.f_mntonname, volume.path.c_str(), sizeof entry.f_mntonname - 1);
    std::strncpy(entry.f_mntfromname, volume.source.c_str(), sizeof entry.f_mntfromname - 1);
  }
  return static_cast<int>(told);
}

}  // extern "C"
