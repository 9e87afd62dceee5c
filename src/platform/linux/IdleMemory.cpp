#include "platform/linux/IdleMemory.h"

#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

namespace {

using Pages = std::vector<std::span<std::byte>>;

std::size_t pageSize() {
  static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

/// Adds what is mapped of one program or library, but not what is writable: that differs from its
/// file.
int addReadOnly(dl_phdr_info* object, std::size_t /*size*/, void* pages) {
  for (const auto& segment : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
      const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
      const std::uintptr_t first = begin & ~(pageSize() - 1);
      // The linker says it as a number.
      auto* const place = reinterpret_cast<std::byte*>(first);  // NOLINT(performance-no-int-to-ptr)
      static_cast<Pages*>(pages)->emplace_back(place, begin + segment.p_memsz - first);
    }
  }
  return 0;
}

/// What the kernel says about one page.
using PageEntry = std::uint64_t;
constexpr PageEntry IS_PRESENT = PageEntry{1} << 63U;
constexpr PageEntry IS_SWAPPED = PageEntry{1} << 62U;
constexpr PageEntry IS_OF_FILE = PageEntry{1} << 61U;

/// Whether nobody but this process has what is in the page: somebody has written into it, or has
/// put memory in the place of the file.
bool isOwn(PageEntry entry) {
  return (entry & (IS_PRESENT | IS_SWAPPED)) != 0 && (entry & IS_OF_FILE) == 0;
}

bool isOfFile(PageEntry entry) { return (entry & IS_PRESENT) != 0 && (entry & IS_OF_FILE) != 0; }

/// Adds those parts of the segment of which the file holds the same.
void addUnchanged(std::span<std::byte> segment, const Descriptor& pageMap, Pages& unchanged) {
  std::vector<PageEntry> entries((segment.size() + pageSize() - 1) / pageSize());
  const auto number = reinterpret_cast<std::uintptr_t>(segment.data()) / pageSize();
  const auto size = entries.size() * sizeof(PageEntry);
  if (::pread(pageMap.number(), entries.data(), size,
              static_cast<off_t>(number * sizeof(PageEntry))) != static_cast<ssize_t>(size)) {
    return;
  }
  auto end = entries.begin();
  while (end != entries.end()) {
    const auto begin = std::find_if_not(end, entries.end(), isOwn);
    end = std::find_if(begin, entries.end(), isOwn);
    // Where the map shows nothing at all, there is nothing to give back, or it is another memory's,
    // as under an emulator.
    if (std::none_of(begin, end, isOfFile)) {
      continue;
    }
    const auto before = static_cast<std::size_t>(std::distance(entries.begin(), begin));
    const auto count = static_cast<std::size_t>(std::distance(begin, end));
    unchanged.emplace_back(segment.data() + before * pageSize(), count * pageSize());
  }
}

Pages unchangedPages() {
  Pages unchanged;
  const Descriptor pageMap(::open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
  if (pageMap.isOpen()) {
    Pages segments;
    ::dl_iterate_phdr(addReadOnly, &segments);
    for (const auto& segment : segments) {
      addUnchanged(segment, pageMap, unchanged);
    }
  }
  return unchanged;
}

}  // namespace

void giveBackIdleMemory() {
  // Nothing but the calls, once all is known: what runs in between is in memory again.
  const Pages unchanged = unchangedPages();
  for (const auto& pages : unchanged) {
    ::madvise(pages.data(), pages.size(), MADV_DONTNEED);
  }
}

}  // namespace ravelin::platform
