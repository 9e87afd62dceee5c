#pragma once

#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <span>
#include <sstream>
#include <string>

namespace ravelin::test {

/// How much of the program and its libraries this process holds in memory, in kB, but of what can
/// be written.
inline std::size_t heldOfFiles() {
  std::ifstream maps("/proc/self/smaps");
  std::size_t held = 0;
  bool counts = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::string first;
    std::string second;
    words >> first >> second;
    if (!first.ends_with(':')) {
      counts = second[1] == '-' && line.find('/') != std::string::npos;
    } else if (counts && first == "Rss:") {
      held += std::stoul(second);
    }
  }
  return held;
}

/// Has all of the program in memory, and returns how much is held then.
inline std::size_t holdAllOfFiles() {
  const auto hold = [](dl_phdr_info* program, std::size_t /*size*/, void* /*data*/) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    for (const auto& segment : std::span(program->dlpi_phdr, program->dlpi_phnum)) {
      const std::uintptr_t begin = program->dlpi_addr + segment.p_vaddr;
      const std::uintptr_t first = begin & ~(page - 1);
      if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the linker says it as a number
        EXPECT_EQ(::madvise(reinterpret_cast<void*>(first), begin + segment.p_memsz - first,
                            MADV_POPULATE_READ),
                  0);
      }
    }
    return 1;  // the libraries come after it
  };
  ::dl_iterate_phdr(hold, nullptr);
  return heldOfFiles();
}

}  // namespace ravelin::test
