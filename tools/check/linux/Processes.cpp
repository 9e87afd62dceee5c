#include "check/linux/Processes.h"

#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "check/linux/ProcFile.h"
#include "platform/RunningAgents.h"

namespace ravelin::check {

namespace fs = std::filesystem;

namespace {

std::string linkAt(const fs::path& path) {
  std::error_code error;
  return fs::read_symlink(path, error).string();
}

std::string nameOf(const fs::path& folder) {
  constexpr std::string_view REPLACED = " (deleted)";
  std::string program = fs::path(linkAt(folder / "exe")).filename().string();
  if (program.ends_with(REPLACED)) {
    program.resize(program.size() - REPLACED.size());
  }
  if (program.empty()) {
    program = contentOf((folder / "comm").string()).value_or("");
    program.erase(std::min(program.find('\n'), program.size()));
  }
  return program;
}

/// The number in "socket:[4711]".
std::optional<std::uint64_t> inodeOf(std::string_view link) {
  constexpr std::string_view BEGIN = "socket:[";
  std::uint64_t inode = 0;
  if (!link.starts_with(BEGIN)) {
    return std::nullopt;
  }
  link.remove_prefix(BEGIN.size());
  const auto [end, error] = std::from_chars(link.data(), link.data() + link.size(), inode);
  return error == std::errc() ? std::optional(inode) : std::nullopt;
}

std::optional<std::set<std::uint64_t>> socketsOf(const fs::path& folder) {
  std::error_code error;
  std::set<std::uint64_t> sockets;
  fs::directory_iterator descriptors(folder / "fd", error);
  if (error) {
    return std::nullopt;
  }
  for (; !error && descriptors != fs::directory_iterator(); descriptors.increment(error)) {
    if (const auto inode = inodeOf(linkAt(descriptors->path()))) {
      sockets.insert(*inode);
    }
  }
  return sockets;
}

std::optional<Process> processAt(const fs::path& folder) {
  Process process;
  const std::string number = folder.filename().string();
  const auto [end, error] =
      std::from_chars(number.data(), number.data() + number.size(), process.id);
  struct stat status{};
  if (error != std::errc() || end != number.data() + number.size() ||
      ::stat(folder.c_str(), &status) != 0) {
    return std::nullopt;
  }
  process.user = status.st_uid;
  process.name = nameOf(folder);
  process.sockets = socketsOf(folder);
  const std::string network = linkAt(folder / "ns/net");
  process.isElsewhere = !network.empty() && network != linkAt("/proc/self/ns/net");
  return process;
}

}  // namespace

std::vector<Process> processes() {
  std::vector<Process> found;
  std::error_code error;
  for (fs::directory_iterator entries("/proc", error);
       !error && entries != fs::directory_iterator(); entries.increment(error)) {
    if (auto process = processAt(entries->path())) {
      found.push_back(*std::move(process));
    }
  }
  const auto agents =
      platform::runningAgentsOfAll().value_or(std::vector<platform::RunningAgent>());
  for (Process& process : found) {
    process.isAgent =
        std::ranges::find(agents, process.id, &platform::RunningAgent::process) != agents.end();
  }
  std::ranges::sort(found, {}, &Process::id);
  return found;
}

std::string nameOfUser(uid_t user) {
  const passwd* const entry = ::getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

}  // namespace ravelin::check
