#include "platform/RunningAgents.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace ravelin::platform {

namespace {

namespace fs = std::filesystem;

/// As the kernel cuts it off.
constexpr std::string_view AGENT_NAME = "ravelin-disk-agent";
constexpr std::size_t NAME_LIMIT = 15;

/// The number that the text is; null for any other text.
std::optional<pid_t> processNumber(const std::string& text) {
  pid_t number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(number) : std::nullopt;
}

/// What anybody may see of a process. Its program file shows only to those whom the kernel lets
/// look into the process, which sandboxes restrict.
bool isRunningAgent(const fs::path& process) {
  std::ifstream status(process / "status");
  bool isAgent = false;
  bool isAlive = false;
  bool isOwn = false;
  std::string key;
  std::string value;
  while (std::getline(status, key, ':') && status >> value) {
    if (key == "Name") {
      isAgent = value == AGENT_NAME.substr(0, NAME_LIMIT);
    } else if (key == "State") {
      isAlive = value != "Z" && value != "X";
    } else if (key == "Uid") {
      isOwn = value == std::to_string(::getuid());
      break;
    }
    std::getline(status, value);
  }
  return isAgent && isAlive && isOwn;
}

}  // namespace

std::optional<std::vector<pid_t>> runningAgents() {
  std::vector<pid_t> agents;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const auto number = processNumber(entry->path().filename().string());
    if (number && isRunningAgent(entry->path())) {
      agents.push_back(*number);
    }
  }
  if (error) {
    return std::nullopt;
  }
  std::ranges::sort(agents);
  return agents;
}

}  // namespace ravelin::platform
