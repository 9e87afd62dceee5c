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
template <class Number>
std::optional<Number> numberIn(const std::string& text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(number) : std::nullopt;
}

/// The user of a process that is an agent and runs, by what anybody may see of it. Its program file
/// shows only to those whom the kernel lets look into the process, which sandboxes restrict.
std::optional<uid_t> userOfRunningAgent(const fs::path& process) {
  std::ifstream status(process / "status");
  bool isAgent = false;
  bool isAlive = false;
  std::optional<uid_t> user;
  std::string key;
  std::string value;
  while (std::getline(status, key, ':') && status >> value) {
    if (key == "Name") {
      isAgent = value == AGENT_NAME.substr(0, NAME_LIMIT);
    } else if (key == "State") {
      isAlive = value != "Z" && value != "X";
    } else if (key == "Uid") {
      user = numberIn<uid_t>(value);
      break;
    }
    std::getline(status, value);
  }
  return isAgent && isAlive ? user : std::nullopt;
}

}  // namespace

std::optional<std::vector<RunningAgent>> runningAgentsOfAll() {
  std::vector<RunningAgent> agents;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const auto number = numberIn<pid_t>(entry->path().filename().string());
    if (const auto user = number ? userOfRunningAgent(entry->path()) : std::nullopt) {
      agents.push_back({.process = *number, .user = *user});
    }
  }
  if (error) {
    return std::nullopt;
  }
  std::ranges::sort(agents, {}, &RunningAgent::process);
  return agents;
}

std::optional<std::vector<pid_t>> runningAgents() {
  const auto all = runningAgentsOfAll();
  if (!all) {
    return std::nullopt;
  }
  std::vector<pid_t> own;
  for (const RunningAgent& agent : *all) {
    if (agent.user == ::getuid()) {
      own.push_back(agent.process);
    }
  }
  return own;
}

}  // namespace ravelin::platform
