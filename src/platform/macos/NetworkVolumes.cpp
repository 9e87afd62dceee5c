#include "platform/macos/NetworkVolumes.h"

#include <NetFS/NetFS.h>
#include <sys/mount.h>

#include <cerrno>
#include <system_error>

#include "base/PathComponents.h"
#include "platform/macos/CoreFoundationText.h"
#include "platform/macos/MountList.h"
#include "platform/macos/Owned.h"

namespace ravelin::platform {

namespace {

std::string commentOn(int status) {
  if (status == 0) {
    return "";
  }
  // What is negative is a number of the framework's own, without a text.
  return status > 0 ? std::generic_category().message(status) : "NetFS failed";
}

using Options = Owned<CFMutableDictionaryRef>;

Options options() {
  return Options(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

/// How the volume is mounted: as guest where there is no password, and without asking anybody.
Options openOptions(bool asGuest) {
  Options chosen = options();
  CFDictionarySetValue(chosen.get(), kNAUIOptionKey, kNAUIOptionNoUI);
  if (asGuest) {
    CFDictionarySetValue(chosen.get(), kNetFSUseGuestKey, kCFBooleanTrue);
  }
  return chosen;
}

Text firstOf(CFArrayRef texts) {
  return texts == nullptr || CFArrayGetCount(texts) == 0
             ? std::nullopt
             : textOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(texts, 0)));
}

}  // namespace

ServerVolumeMount NetworkVolumes::mountServerVolume(const std::string& url, const std::string& user,
                                                    const std::string& password) {
  const auto share = cfUrlOf(url);
  if (share == nullptr) {
    return {.status = EINVAL, .comment = commentOn(EINVAL), .reference = 0};
  }
  CFArrayRef mounted = nullptr;
  const int status =
      NetFSMountURLSync(share.get(), nullptr, cfStringOf(user).get(), cfStringOf(password).get(),
                        openOptions(password.empty()).get(), options().get(), &mounted);
  const Owned<CFArrayRef> points(mounted);
  const Text point = firstOf(points.get());
  if (status != 0 || !point) {
    const int failure = status != 0 ? status : EIO;
    return {.status = failure, .comment = commentOn(failure), .reference = 0};
  }
  const std::int16_t reference = _references.give(*point, MountList::holds);
  if (reference == 0) {
    ::unmount(point->c_str(), 0);
    return {.status = EMFILE, .comment = commentOn(EMFILE), .reference = 0};
  }
  return {.status = 0, .comment = "", .reference = reference};
}

VolumeOutcome NetworkVolumes::unmountVolume(std::int16_t reference) {
  const Text path = pathOfVolume(reference);
  const int failure = !path ? ENOENT : ::unmount(path->c_str(), 0) != 0 ? errno : 0;
  return {.status = failure, .comment = commentOn(failure)};
}

std::int16_t NetworkVolumes::referenceOfVolume(const std::string& path) {
  return MountList::holds(path) ? _references.numberOf(path, MountList::holds) : std::int16_t{0};
}

Text NetworkVolumes::pathOfVolume(std::int16_t reference) {
  const Text path = _references.pathOf(reference);
  return path && MountList::holds(*path) ? path : std::nullopt;
}

std::vector<Volume> NetworkVolumes::volumes() {
  std::vector<Volume> volumes;
  for (std::string& point : MountList::points()) {
    // The root of all has the name that separates names.
    volumes.push_back({.name = point == "/" ? "" : lastPathComponent(point), .rootPath = point});
  }
  return volumes;
}

std::vector<MountedShare> NetworkVolumes::mountedShares() { return MountList::shares(); }

}  // namespace ravelin::platform
