#include "platform/linux/shortcut/Trash.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/linux/HelperProgram.h"
#include "platform/linux/shortcut/ShortcutHelper.h"

namespace ravelin::platform {

namespace {

constexpr std::chrono::seconds LIMIT{5};
constexpr std::chrono::minutes REFUSAL_PERIOD{1};
constexpr std::size_t REFUSALS_LIMIT = 256;

/// The helper's last message, without what its libraries wrote before it.
std::string reasonIn(std::string_view output) {
  const std::string mark = std::string(ShortcutHelper::NAME) + ": ";
  const std::size_t begin = output.rfind(mark);
  if (begin == std::string_view::npos) {
    return "The trash is not to be had";
  }
  const std::string_view reason = output.substr(begin + mark.size());
  return std::string(reason.substr(0, reason.find('\n')));
}

struct Outcome {
  Text failure;
  bool hasHung = false;
};

Outcome runHelper(const std::string& path, const struct stat& item) {
  try {
    const ChildResult result =
        HelperProgram(ShortcutHelper::NAME)
            .run({"trash", path, std::to_string(item.st_dev), std::to_string(item.st_ino)}, LIMIT);
    if (result.timedOut) {
      return {.failure = "The trash does not answer", .hasHung = true};
    }
    return {.failure = result.succeeded() ? Text() : reasonIn(result.output), .hasHung = false};
  } catch (const LaunchException& exception) {
    return {.failure = exception.what(), .hasHung = false};
  }
}

bool isStillThere(const FolderAccess& access, const BeneathResolver::Place& place,
                  const struct stat& item) {
  const FoundItem found = access.find(place.folder.number(), place.name);
  return found.error == 0 && found.status.st_dev == item.st_dev &&
         found.status.st_ino == item.st_ino;
}

}  // namespace

std::optional<FileError> Trash::take(const BeneathResolver::Place& place, const FoundItem& item) {
  struct stat status{};
  std::error_code error;
  // The folder's own path, without links.
  const std::filesystem::path folder = std::filesystem::read_symlink(
      "/proc/self/fd/" + std::to_string(place.folder.number()), error);
  if (error || ::fstat(item.descriptor.number(), &status) != 0) {
    return FileError{"The file is no longer there"};
  }
  const Identity identity{status.st_dev, status.st_ino, status.st_ctim.tv_sec,
                          status.st_ctim.tv_nsec};
  if (auto refusal = _refusalOf(identity)) {
    return refusal;
  }
  Outcome outcome = runHelper((folder / place.name).string(), status);
  if (!outcome.failure && isStillThere(_access, place, status)) {
    outcome.failure = "It is still there";
  }
  if (!outcome.failure) {
    return std::nullopt;
  }
  const Refusal refusal{.identity = identity,
                        .end = Clock::now() + REFUSAL_PERIOD,
                        .error = FileError{"Not moved to the trash: " + *outcome.failure}};
  const LockGuard lock(_mutex);
  if (outcome.hasHung) {
    _refusalOfAll = refusal;
  } else if (_refusals.size() < REFUSALS_LIMIT) {
    _refusals.push_back(refusal);
  }
  return refusal.error;
}

std::optional<FileError> Trash::_refusalOf(const Identity& identity) {
  const LockGuard lock(_mutex);
  const auto now = Clock::now();
  std::erase_if(_refusals, [now](const Refusal& refusal) { return refusal.end <= now; });
  if (_refusalOfAll && _refusalOfAll->end > now) {
    return _refusalOfAll->error;
  }
  const auto found = std::ranges::find(_refusals, identity, &Refusal::identity);
  return found == _refusals.end() ? std::nullopt : std::optional(found->error);
}

}  // namespace ravelin::platform
