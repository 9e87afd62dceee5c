#include "platform/linux/gvfs/MountTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

#include "base/PercentEscaping.h"
#include "base/Utf8.h"

namespace ravelin::platform {

namespace {

const char* const KERNEL_TABLE = "/proc/self/mounts";
constexpr std::string_view GVFS_FILE_SYSTEM = "fuse.gvfsd-fuse";
/// What the folder of one GVfs mount counts as.
constexpr std::string_view GVFS_MOUNT = "gvfs";
constexpr std::string_view GVFS_SHARE = "smb-share:";

/// Takes the text up to the separator from the front.
std::string_view take(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return taken;
}

/// The kernel writes blanks and the like as a backslash and three octal digits.
std::string withoutOctalEscapes(std::string_view text) {
  if (text.find('\\') == std::string_view::npos) {
    return std::string(text);
  }
  constexpr std::size_t DIGIT_COUNT = 3;
  constexpr unsigned DIGIT_BITS = 3;
  std::string plain;
  std::size_t at = 0;
  while ((at = text.find('\\')) != std::string_view::npos) {
    const std::string_view digits = text.substr(at + 1, DIGIT_COUNT);
    const bool isEscape =
        digits.size() == DIGIT_COUNT && digits.front() <= '3' &&
        std::ranges::all_of(digits, [](char digit) { return digit >= '0' && digit <= '7'; });
    unsigned value = 0;
    for (const char digit : isEscape ? digits : std::string_view()) {
      value = (value << DIGIT_BITS) + static_cast<unsigned>(digit - '0');
    }
    plain.append(text.substr(0, at));
    plain += isEscape ? static_cast<char>(value) : text[at];
    text.remove_prefix(at + 1 + (isEscape ? DIGIT_COUNT : 0));
  }
  plain.append(text);
  return plain;
}

std::string octalEscape(char character) {
  constexpr unsigned DIGIT_BITS = 3;
  constexpr unsigned DIGIT_MASK = 7;
  const unsigned byte = static_cast<unsigned char>(character);
  std::string escape = "\\";
  for (const unsigned shift : {2 * DIGIT_BITS, DIGIT_BITS, 0U}) {
    escape += static_cast<char>('0' + ((byte >> shift) & DIGIT_MASK));
  }
  return escape;
}

/// The text with escapes for the bytes that are no UTF-8.
std::string inUtf8(std::string text) {
  if (isUtf8(text)) {
    return text;
  }
  constexpr std::size_t LONGEST = 4;
  std::string escaped;
  std::string_view rest = text;
  while (!rest.empty()) {
    std::size_t size = 1;
    while (size < LONGEST && !isUtf8(rest.substr(0, size))) {
      ++size;
    }
    if (isUtf8(rest.substr(0, size))) {
      escaped += rest.substr(0, size);
      rest.remove_prefix(std::min(size, rest.size()));
    } else {
      escaped += octalEscape(rest.front());
      rest.remove_prefix(1);
    }
  }
  return escaped;
}

/// What GVfs calls a mount, as in "smb-share:server=192.0.2.10,share=usb%20disk,user=guest".
std::string sourceOfGvfsMount(const std::string& folder) {
  if (!folder.starts_with(GVFS_SHARE)) {
    return folder;
  }
  std::map<std::string_view, std::string> values;
  std::string_view rest = std::string_view(folder).substr(GVFS_SHARE.size());
  while (!rest.empty()) {
    std::string_view value = take(rest, ',');
    const std::string_view key = take(value, '=');
    values[key] = removingPercentEscapes(value);
  }
  const std::string user = values["user"].empty() ? "" : values["user"] + "@";
  const std::string port = values["port"].empty() ? "" : ":" + values["port"];
  return "//" + user + values["server"] + port + "/" + values["share"];
}

std::vector<Mount> gvfsMountsIn(const Mount& gvfs, const MountTable::FolderReader& namesIn) {
  std::vector<Mount> found;
  for (const std::string& name : namesIn(gvfs.point)) {
    found.push_back({.source = sourceOfGvfsMount(name),
                     .point = gvfs.point + "/" + name,
                     .type = std::string(GVFS_MOUNT),
                     .options = gvfs.options});
  }
  std::ranges::sort(found, {}, &Mount::point);
  return found;
}

bool isShare(const Mount& mount) {
  static constexpr std::array<std::string_view, 4> TYPES{GVFS_MOUNT, "cifs", "smb3", "smbfs"};
  return mount.source.starts_with("//") && std::ranges::find(TYPES, mount.type) != TYPES.end();
}

/// Appends what stands behind the source of a mount in a listing.
void appendRestOfLine(const Mount& mount, std::string& text) {
  const std::size_t begin = text.size();
  text.append(" on ").append(mount.point).append(" (").append(mount.type);
  std::string_view options = mount.options;
  while (!options.empty()) {
    text.append(", ").append(take(options, ','));
  }
  text.append(")\n");
  if (!isUtf8(std::string_view(text).substr(begin))) {
    const std::string rest = inUtf8(text.substr(begin));
    text.resize(begin);
    text.append(rest);
  }
}

}  // namespace

std::optional<MountTable> MountTable::read() {
  std::ifstream file(KERNEL_TABLE, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return MountTable(std::string(std::istreambuf_iterator<char>(file), {}));
}

std::vector<std::string> MountTable::namesInFolder(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  // The folder of another user's session cannot be read.
  for (std::filesystem::directory_iterator item(folder, error), end; !error && item != end;
       item.increment(error)) {
    names.push_back(item->path().filename().string());
  }
  return names;
}

MountTable::MountTable(std::string_view kernelTable, const FolderReader& namesIn) {
  std::vector<Mount> gvfs;
  _mounts.reserve(static_cast<std::size_t>(std::ranges::count(kernelTable, '\n')));
  while (!kernelTable.empty()) {
    std::string_view line = take(kernelTable, '\n');
    Mount mount;
    for (std::string* field : {&mount.source, &mount.point, &mount.type, &mount.options}) {
      *field = withoutOctalEscapes(take(line, ' '));
    }
    if (mount.type == GVFS_FILE_SYSTEM) {
      std::ranges::move(gvfsMountsIn(mount, namesIn), std::back_inserter(gvfs));
    }
    if (!mount.type.empty()) {
      _mounts.push_back(std::move(mount));
    }
  }
  std::ranges::move(gvfs, std::back_inserter(_mounts));
}

std::vector<Mount> MountTable::volumes() const {
  std::vector<Mount> found;
  std::ranges::copy_if(_mounts, std::back_inserter(found), [](const Mount& mount) {
    return mount.source.starts_with('/') || mount.type == GVFS_MOUNT;
  });
  return found;
}

std::vector<MountedShare> MountTable::shares() const {
  std::vector<MountedShare> found;
  for (const Mount& mount : _mounts) {
    if (isShare(mount)) {
      std::string_view share = std::string_view(mount.source).substr(2);
      const std::string_view server = take(share, '/');
      found.push_back({.server = std::string(server.substr(server.rfind('@') + 1)),
                       .share = std::string(share),
                       .rootPath = inUtf8(mount.point)});
    }
  }
  return found;
}

bool MountTable::isGvfsMount(std::string_view path) const {
  return std::ranges::any_of(_mounts, [path](const Mount& mount) {
    return mount.type == GVFS_MOUNT && mount.point == path;
  });
}

MountListing MountTable::listing() const {
  MountListing listing;
  for (const Mount& mount : _mounts) {
    const bool isCaseless = isShare(mount);
    const Text escaped = isCaseless ? addingPercentEscapes(mount.source) : std::nullopt;
    const std::size_t begin = listing.text.size();
    // With escapes it is ASCII.
    listing.text.append(escaped ? *escaped : inUtf8(mount.source));
    if (isCaseless) {
      listing.caseless.push_back({.begin = begin, .size = listing.text.size() - begin});
    }
    appendRestOfLine(mount, listing.text);
  }
  return listing;
}

std::string MountTable::pointListedAs(const std::string& path) const {
  const bool isPoint = std::ranges::find(_mounts, path, &Mount::point) != _mounts.end();
  const auto escaped = std::ranges::find_if(
      _mounts, [&path](const Mount& mount) { return inUtf8(mount.point) == path; });
  return isPoint || escaped == _mounts.end() ? path : escaped->point;
}

}  // namespace ravelin::platform
