#include "platform/linux/gvfs/MountTable.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <system_error>
#include <utility>

#include "base/PercentEscaping.h"
#include "base/TextSearch.h"
#include "base/Utf8.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileReading.h"

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

/// The text from the beginning of the line in which the place is.
std::string_view fromLineAt(std::string_view text, std::size_t place) {
  const std::size_t before = text.substr(0, place).rfind('\n');
  return text.substr(before == std::string_view::npos ? 0 : before + 1);
}

constexpr std::size_t DIGIT_COUNT = 3;

/// Whether a backslash before these characters begins an escape.
bool beginsWithOctalDigits(std::string_view text) {
  return text.size() >= DIGIT_COUNT && text[0] >= '0' && text[0] <= '3' && text[1] >= '0' &&
         text[1] <= '7' && text[2] >= '0' && text[2] <= '7';
}

/// The kernel writes blanks and the like as a backslash and three octal digits. The text itself
/// where it has none of that, else the plain text in the buffer.
std::string_view withoutOctalEscapes(std::string_view text, std::string& buffer) {
  std::size_t at = text.find('\\');
  if (at == std::string_view::npos) {
    return text;
  }
  constexpr unsigned DIGIT_BITS = 3;
  buffer.clear();
  for (; at != std::string_view::npos; at = text.find('\\')) {
    buffer.append(text.substr(0, at));
    text.remove_prefix(at + 1);
    if (!beginsWithOctalDigits(text)) {
      buffer += '\\';
      continue;
    }
    unsigned value = 0;
    for (const char digit : text.substr(0, DIGIT_COUNT)) {
      value = (value << DIGIT_BITS) + static_cast<unsigned>(digit - '0');
    }
    buffer += static_cast<char>(value);
    text.remove_prefix(DIGIT_COUNT);
  }
  return buffer.append(text);
}

/// Whether only such characters are escaped as the kernel escapes: a blank, a tab, a line feed, a
/// backslash, '#', ',' and '='.
bool hasKernelsEscapesOnly(std::string_view table) {
  static constexpr std::array<std::string_view, 7> KERNELS{"040", "134", "011", "012",
                                                           "043", "054", "075"};
  for (std::size_t at = 0; (at = table.find('\\', at)) != std::string_view::npos; ++at) {
    const std::string_view digits = table.substr(at + 1, DIGIT_COUNT);
    if (std::ranges::find(KERNELS, digits) == KERNELS.end() && beginsWithOctalDigits(digits)) {
      return false;
    }
  }
  return true;
}

/// A mounted file system, whose texts are somebody else's.
struct MountView {
  MountView() = default;
  explicit MountView(const Mount& mount)
      : source(mount.source), point(mount.point), type(mount.type), options(mount.options) {}

  [[nodiscard]] Mount copy() const {
    return {.source = std::string(source),
            .point = std::string(point),
            .type = std::string(type),
            .options = std::string(options)};
  }

  std::string_view source;
  std::string_view point;
  std::string_view type;
  std::string_view options;
};

/// Goes from line to line of the kernel's table.
class KernelLines {
 public:
  explicit KernelLines(std::string_view table) : _rest(table) {}

  /// Goes to the next line that is a mount's; false where there is none.
  bool next() {
    while (!_rest.empty()) {
      std::string_view line = take(_rest, '\n');
      MountView mount;
      std::string* buffer = _buffers.data();
      for (std::string_view* field : {&mount.source, &mount.point, &mount.type, &mount.options}) {
        *field = withoutOctalEscapes(take(line, ' '), *buffer++);
      }
      if (!mount.type.empty()) {
        _mount = mount;
        return true;
      }
    }
    return false;
  }

  /// The mount of the line; its texts are good until the next line.
  [[nodiscard]] const MountView& mount() const { return _mount; }

  /// What is behind the line.
  [[nodiscard]] std::string_view rest() const { return _rest; }

 private:
  std::string_view _rest;
  MountView _mount;
  std::array<std::string, 4> _buffers;
};

/// The longest part of the text that stands in a listing only where it stands in the kernel's
/// table, in one line, letter by letter: neither escapes nor what a listing puts between the fields
/// have such characters, or digits only behind others. Empty where there is no such part.
std::string_view unchangingPartOf(std::string_view sought) {
  static constexpr std::string_view FIRST = "./";
  static constexpr std::string_view ANY = "./0123456789";
  std::string_view longest;
  // A place with a line feed begins in one line and ends in another.
  const bool isOneLine = sought.find('\n') == std::string_view::npos;
  std::size_t begin = isOneLine ? sought.find_first_of(FIRST) : std::string_view::npos;
  while (begin != std::string_view::npos) {
    const std::size_t end = std::min(sought.find_first_not_of(ANY, begin), sought.size());
    if (end - begin > longest.size()) {
      longest = sought.substr(begin, end - begin);
    }
    begin = sought.find_first_of(FIRST, end);
  }
  return longest;
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
std::string inUtf8(std::string_view text) {
  if (isUtf8(text)) {
    return std::string(text);
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

std::vector<Mount> gvfsMountsIn(const MountView& gvfs, const MountTable::FolderReader& namesIn) {
  const std::string point(gvfs.point);
  std::vector<Mount> found;
  for (const std::string& name : namesIn(point)) {
    found.push_back({.source = sourceOfGvfsMount(name),
                     .point = std::string(point).append("/").append(name),
                     .type = std::string(GVFS_MOUNT),
                     .options = std::string(gvfs.options)});
  }
  std::ranges::sort(found, {}, &Mount::point);
  return found;
}

/// Calls it for every mount, those of GVfs last.
template <class Visit>
void visitAll(std::string_view kernelTable, const std::vector<Mount>& gvfsMounts, Visit visit) {
  for (KernelLines lines(kernelTable); lines.next();) {
    visit(lines.mount());
  }
  for (const Mount& mount : gvfsMounts) {
    visit(MountView(mount));
  }
}

bool isVolume(const MountView& mount) {
  return mount.source.starts_with('/') || mount.type == GVFS_MOUNT;
}

bool isShare(const MountView& mount) {
  static constexpr std::array<std::string_view, 4> TYPES{GVFS_MOUNT, "cifs", "smb3", "smbfs"};
  return mount.source.starts_with("//") && std::ranges::find(TYPES, mount.type) != TYPES.end();
}

/// Appends what stands behind the source of a mount in a listing.
void appendRestOfLine(const MountView& mount, std::string& text) {
  const std::size_t begin = text.size();
  text.append(" on ").append(mount.point).append(" (").append(mount.type);
  std::string_view options = mount.options;
  while (!options.empty()) {
    text.append(", ").append(take(options, ','));
  }
  text.append(")\n");
  if (!isUtf8(std::string_view(text).substr(begin))) {
    const std::string rest = inUtf8(std::string_view(text).substr(begin));
    text.resize(begin);
    text.append(rest);
  }
}

void appendLine(const MountView& mount, MountListing& listing) {
  const bool isCaseless = isShare(mount);
  const Text escaped = isCaseless ? addingPercentEscapes(mount.source) : std::nullopt;
  const std::size_t begin = listing.text.size();
  // With escapes it is ASCII.
  if (!escaped && isUtf8(mount.source)) {
    listing.text.append(mount.source);
  } else {
    listing.text.append(escaped ? *escaped : inUtf8(mount.source));
  }
  if (isCaseless) {
    listing.caseless.push_back({.begin = begin, .size = listing.text.size() - begin});
  }
  appendRestOfLine(mount, listing.text);
}

/// Appends the lines that may have the sought text, of which the needle is an unchanging part, and
/// those behind each up to the next path, in which the path that is looked for may begin or end.
void appendLinesAbout(std::string_view needle, std::string_view table, MountListing& listing) {
  const TextSearch search(needle);
  for (std::size_t found = 0; (found = search.in(table)) != std::string_view::npos;) {
    table = fromLineAt(table, found);
    KernelLines lines(table);
    bool isDone = false;
    while (!isDone && lines.next()) {
      const MountView& mount = lines.mount();
      appendLine(mount, listing);
      const std::string_view passed = table.substr(0, table.size() - lines.rest().size());
      table = lines.rest();
      const bool hasPath = mount.source.find('/') != std::string_view::npos ||
                           mount.point.find('/') != std::string_view::npos;
      isDone = hasPath && search.in(passed) == std::string_view::npos;
    }
    if (!isDone) {
      return;
    }
  }
}

}  // namespace

std::optional<MountTable> MountTable::read() {
  constexpr std::size_t NO_LIMIT = std::numeric_limits<std::size_t>::max();
  Text table = contentsOf(Descriptor(::open(KERNEL_TABLE, READING)), NO_LIMIT).text;
  return table ? std::optional(MountTable(*std::move(table))) : std::nullopt;
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

MountTable::MountTable(std::string kernelTable, const FolderReader& namesIn)
    : _kernelTable(std::move(kernelTable)), _isPlain(hasKernelsEscapesOnly(_kernelTable)) {
  const TextSearch search(_isPlain ? GVFS_FILE_SYSTEM : std::string_view());
  std::string_view table = _kernelTable;
  for (std::size_t found = 0; (found = search.in(table)) != std::string_view::npos;) {
    table = fromLineAt(table, found);
    KernelLines lines(table);
    if (!lines.next()) {
      break;
    }
    if (lines.mount().type == GVFS_FILE_SYSTEM) {
      std::ranges::move(gvfsMountsIn(lines.mount(), namesIn), std::back_inserter(_gvfsMounts));
    }
    table = lines.rest();
  }
}

std::vector<Mount> MountTable::mounts() const {
  std::vector<Mount> found;
  visitAll(_kernelTable, _gvfsMounts,
           [&found](const MountView& mount) { found.push_back(mount.copy()); });
  return found;
}

std::vector<Mount> MountTable::volumes() const {
  std::vector<Mount> found;
  visitAll(_kernelTable, _gvfsMounts, [&found](const MountView& mount) {
    if (isVolume(mount)) {
      found.push_back(mount.copy());
    }
  });
  return found;
}

std::vector<MountedShare> MountTable::shares() const {
  std::vector<MountedShare> found;
  visitAll(_kernelTable, _gvfsMounts, [&found](const MountView& mount) {
    if (isShare(mount)) {
      std::string_view share = mount.source.substr(2);
      const std::string_view server = take(share, '/');
      found.push_back({.server = std::string(server.substr(server.rfind('@') + 1)),
                       .share = std::string(share),
                       .rootPath = inUtf8(mount.point)});
    }
  });
  return found;
}

bool MountTable::isGvfsMount(std::string_view path) const {
  bool isOne = false;
  visitAll(_kernelTable, _gvfsMounts, [&isOne, path](const MountView& mount) {
    isOne |= mount.type == GVFS_MOUNT && mount.point == path;
  });
  return isOne;
}

MountListing MountTable::listing() const {
  MountListing listing;
  visitAll(_kernelTable, _gvfsMounts,
           [&listing](const MountView& mount) { appendLine(mount, listing); });
  return listing;
}

MountListing MountTable::listingAbout(std::string_view sought) const {
  const std::string_view needle = _isPlain ? unchangingPartOf(sought) : std::string_view();
  if (needle.empty()) {
    return listing();
  }
  MountListing listing;
  appendLinesAbout(needle, _kernelTable, listing);
  for (const Mount& mount : _gvfsMounts) {
    appendLine(MountView(mount), listing);
  }
  return listing;
}

std::string MountTable::pointListedAs(const std::string& path) const {
  bool isPoint = false;
  Text escaped;
  visitAll(_kernelTable, _gvfsMounts, [&](const MountView& mount) {
    isPoint |= mount.point == path;
    if (!escaped && !isUtf8(mount.point) && inUtf8(mount.point) == path) {
      escaped = std::string(mount.point);
    }
  });
  return isPoint || !escaped ? path : *escaped;
}

}  // namespace ravelin::platform
