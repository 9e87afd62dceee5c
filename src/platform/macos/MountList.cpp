#include "platform/macos/MountList.h"

#include <sys/mount.h>
#include <sys/param.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "base/PercentEscaping.h"

namespace ravelin::platform {

namespace {

std::vector<struct statfs> entries() {
  // Some more than there are, for what is mounted between the two calls.
  constexpr int MARGIN = 16;
  const int count = ::getfsstat(nullptr, 0, MNT_NOWAIT);
  if (count < 0) {
    return {};
  }
  std::vector<struct statfs> found(static_cast<std::size_t>(count + MARGIN));
  const int filled =
      ::getfsstat(found.data(), static_cast<int>(found.size() * sizeof(struct statfs)), MNT_NOWAIT);
  found.resize(static_cast<std::size_t>(std::max(filled, 0)));
  return found;
}

/// The share in a source, "//user@server/share"; null where it is none.
std::optional<MountedShare> shareIn(std::string_view source, std::string_view point) {
  if (!source.starts_with("//")) {
    return std::nullopt;
  }
  source.remove_prefix(2);
  const std::size_t slash = source.find('/');
  if (slash == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view server = source.substr(0, slash);
  // A user's name may hold the sign, a server's cannot.
  server.remove_prefix(server.rfind('@') + 1);
  return MountedShare{.server = std::string(server),
                      .share = removingPercentEscapes(source.substr(slash + 1)),
                      .rootPath = std::string(point)};
}

}  // namespace

std::vector<std::string> MountList::points() {
  std::vector<std::string> points;
  for (const struct statfs& entry : entries()) {
    points.emplace_back(entry.f_mntonname);
  }
  return points;
}

bool MountList::holds(const std::string& point) { return std::ranges::count(points(), point) > 0; }

std::vector<MountedShare> MountList::shares() {
  std::vector<MountedShare> shares;
  for (const struct statfs& entry : entries()) {
    if (std::string_view(entry.f_fstypename) != "smbfs") {
      continue;
    }
    if (auto share = shareIn(entry.f_mntfromname, entry.f_mntonname)) {
      shares.push_back(std::move(*share));
    }
  }
  return shares;
}

}  // namespace ravelin::platform
