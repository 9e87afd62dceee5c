#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/PercentEscaping.h"
#include "base/Utf8.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "fuzz/Require.h"
#include "platform/Service.h"
#include "platform/SystemPrograms.h"
#include "platform/linux/gvfs/MountTable.h"

namespace {

using ravelin::addingPercentEscapes;
using ravelin::Disk;
using ravelin::DiskManager;
using ravelin::removingPercentEscapes;
using ravelin::Text;
using ravelin::textOrNull;
using ravelin::fuzz::require;
using ravelin::platform::ChildResult;
using ravelin::platform::Mount;
using ravelin::platform::MountListing;
using ravelin::platform::MountTable;

/// Lists the table that the fuzzer has made up; nothing else is asked for.
class ListedPrograms final : public ravelin::platform::SystemPrograms {
 public:
  explicit ListedPrograms(const MountTable& table) : _table(table) {}

  MountListing mountTable() override { return _table.listing(); }
  MountListing mountTableAbout(std::string_view sought) override {
    return _table.listingAbout(sought);
  }
  ChildResult mountGuestShare(const std::string& /*server*/, const std::string& /*share*/,
                              const std::string& /*folder*/) override {
    std::abort();
  }
  ChildResult umount(const std::string& /*path*/) override { std::abort(); }
  ChildResult mkdir(const std::string& /*path*/) override { std::abort(); }
  ChildResult rmdir(const std::string& /*path*/) override { std::abort(); }

 private:
  const MountTable& _table;
};

/// The pieces between the separators; a separator at the end has none behind it.
std::vector<std::string> pieces(const std::string& text, char separator) {
  std::vector<std::string> found;
  std::string piece;
  for (const char character : text) {
    if (character == separator) {
      found.push_back(piece);
      piece.clear();
    } else {
      piece += character;
    }
  }
  if (!piece.empty()) {
    found.push_back(piece);
  }
  return found;
}

std::string unescaped(const std::string& field) {
  std::string plain;
  for (std::size_t at = 0; at < field.size(); ++at) {
    const auto isDigit = [&](std::size_t behind, char highest) {
      return at + behind < field.size() && field[at + behind] >= '0' &&
             field[at + behind] <= highest;
    };
    if (field[at] == '\\' && isDigit(1, '3') && isDigit(2, '7') && isDigit(3, '7')) {
      plain += static_cast<char>((field[at + 1] - '0') * 64 + (field[at + 2] - '0') * 8 +
                                 (field[at + 3] - '0'));
      at += 3;
    } else {
      plain += field[at];
    }
  }
  return plain;
}

std::vector<Mount> kernelMounts(const std::string& table) {
  std::vector<Mount> mounts;
  for (const std::string& line : pieces(table, '\n')) {
    std::vector<std::string> fields = pieces(line, ' ');
    fields.resize(4);
    if (!fields[2].empty()) {
      mounts.push_back({.source = unescaped(fields[0]),
                        .point = unescaped(fields[1]),
                        .type = unescaped(fields[2]),
                        .options = unescaped(fields[3])});
    }
  }
  return mounts;
}

std::string gvfsSource(const std::string& folder) {
  const std::string share = "smb-share:";
  if (!folder.starts_with(share)) {
    return folder;
  }
  std::map<std::string, std::string> values;
  for (const std::string& item : pieces(folder.substr(share.size()), ',')) {
    const std::size_t end = std::min(item.find('='), item.size());
    values[item.substr(0, end)] =
        removingPercentEscapes(item.substr(std::min(end + 1, item.size())));
  }
  std::string source = "//";
  source += values["user"].empty() ? "" : values["user"] + "@";
  source += values["server"];
  source += values["port"].empty() ? "" : ":" + values["port"];
  return source + "/" + values["share"];
}

/// With the mounts in each folder of GVfs behind all the others.
std::vector<Mount> allMounts(std::vector<Mount> mounts, const std::vector<std::string>& names) {
  std::vector<Mount> inFolders;
  for (const Mount& mount : mounts) {
    if (mount.type != "fuse.gvfsd-fuse") {
      continue;
    }
    std::vector<std::string> sorted = names;
    std::ranges::sort(sorted);
    for (const std::string& name : sorted) {
      inFolders.push_back({.source = gvfsSource(name),
                           .point = mount.point + "/" + name,
                           .type = "gvfs",
                           .options = mount.options});
    }
  }
  mounts.insert(mounts.end(), inFolders.begin(), inFolders.end());
  return mounts;
}

std::string lowered(std::string text) {
  for (char& character : text) {
    character =
        character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
  }
  return text;
}

/// The mount's line; where the sought text is in the source of a share but for the case of letters,
/// it stands there as it is sought.
std::string listed(const Mount& mount, const std::string& sought) {
  std::string source = mount.source;
  if (source.starts_with("//") && (mount.type == "gvfs" || mount.type == "cifs" ||
                                   mount.type == "smb3" || mount.type == "smbfs")) {
    source = addingPercentEscapes(source).value_or(source);
    const std::size_t found = lowered(source).find(lowered(sought));
    if (found != std::string::npos) {
      source.replace(found, sought.size(), sought);
    }
  }
  std::string line = source + " on " + mount.point + " (" + mount.type;
  for (const std::string& option : pieces(mount.options, ',')) {
    line += ", " + option;
  }
  return line + ")\n";
}

/// Where the listing says that the share is mounted, read letter by letter.
Text foundIn(const std::string& listing, const std::string& sought) {
  const std::size_t share = listing.find(sought);
  if (share == std::string::npos) {
    return std::nullopt;
  }
  std::size_t at = share + sought.size();
  while (at < listing.size() && listing[at] != '/') {
    ++at;
  }
  std::string path;
  for (; at < listing.size() && listing[at] != '('; ++at) {
    path += listing[at];
  }
  if (at == listing.size()) {
    return std::nullopt;
  }
  // Without its last character, which is the blank before the parenthesis.
  while (!path.empty() && (static_cast<unsigned char>(path.back()) & 0xC0U) == 0x80U) {
    path.pop_back();
  }
  path.resize(path.size() - (path.empty() ? 0 : 1));
  return path;
}

void checkLookUp(const MountTable& table, const std::vector<Mount>& expected,
                 const std::string& address, const std::string& label) {
  Disk disk;
  disk.setIpAddress(address);
  disk.setLabel(label);
  const std::string sought = address + "/" + textOrNull(addingPercentEscapes(label));
  std::string listing;
  std::string asItIs;
  for (const Mount& mount : expected) {
    listing += listed(mount, sought);
    asItIs += listed(mount, "");
  }
  // What is not UTF-8 has no text to be searched.
  if (ravelin::isUtf8(listing)) {
    require(table.listing().text == asItIs);
    require(DiskManager::getMountedDiskMountDirectory(disk) == foundIn(listing, sought));
  }
}

}  // namespace

/// The input: the kernel's table, a server's address, a label, and the names of the mounts in every
/// folder of GVfs, with a NUL between them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> parts = pieces(std::string(data, data + size), '\0');
  parts.resize(std::max<std::size_t>(parts.size(), 3));
  std::vector<std::string> names(parts.begin() + 3, parts.end());
  const std::vector<Mount> expected = allMounts(kernelMounts(parts[0]), names);
  // Each costs time with every other one.
  constexpr std::size_t MOST_MOUNTS = 16;
  if (expected.size() > MOST_MOUNTS) {
    return 0;
  }
  const MountTable table(parts[0], [&names](const std::string& /*folder*/) { return names; });
  require(table.mounts() == expected);
  for (const Mount& mount : expected) {
    const bool isGvfs = std::ranges::any_of(expected, [&mount](const Mount& other) {
      return other.type == "gvfs" && other.point == mount.point;
    });
    require(table.isGvfsMount(mount.point) == isGvfs);
  }

  ListedPrograms programs(table);
  const ravelin::platform::Substitute<ravelin::platform::SystemPrograms> inForce(programs);
  checkLookUp(table, expected, parts[1], parts[2]);
  // One of the shares themselves.
  const auto share = std::ranges::find_if(
      expected, [](const Mount& mount) { return mount.source.starts_with("//"); });
  if (share != expected.end()) {
    const std::size_t slash = share->source.rfind('/');
    checkLookUp(table, expected, share->source.substr(2, std::max<std::size_t>(slash, 2) - 2),
                share->source.substr(slash + 1));
  }
  return 0;
}
