#include "platform/linux/IdleMemory.h"

#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/posix/Descriptor.h"
#include "platform/posix/FileReading.h"

namespace ravelin::platform {

namespace {

bool isDebugged() {
  constexpr std::size_t LIMIT = 65536;
  const auto status =
      contentsOf(Descriptor(::open("/proc/self/status", O_RDONLY | O_CLOEXEC)), LIMIT);
  return !status.text || status.text->find("\nTracerPid:\t0\n") == std::string::npos;
}

using Pages = std::vector<std::span<std::byte>>;

/// Adds what is mapped of one program or library, but not what is writable: that differs from its
/// file.
int addUnchanged(dl_phdr_info* object, std::size_t /*size*/, void* pages) {
  static const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (const auto& segment : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
      const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
      const std::uintptr_t first = begin & ~(page - 1);
      // The linker says it as a number.
      auto* const place = reinterpret_cast<std::byte*>(first);  // NOLINT(performance-no-int-to-ptr)
      static_cast<Pages*>(pages)->emplace_back(place, begin + segment.p_memsz - first);
    }
  }
  return 0;
}

}  // namespace

void giveBackIdleMemory() {
  if (isDebugged()) {
    return;
  }
  // First all, then none: the list itself is read from these pages.
  Pages pages;
  ::dl_iterate_phdr(addUnchanged, &pages);
  for (const auto& some : pages) {
    ::madvise(some.data(), some.size(), MADV_DONTNEED);
  }
}

}  // namespace ravelin::platform
