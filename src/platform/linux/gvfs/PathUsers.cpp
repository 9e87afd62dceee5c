#include "platform/linux/gvfs/PathUsers.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

namespace ravelin::platform {

namespace {

namespace fs = std::filesystem;

/// Where the link leads, from the path on; null where it leads elsewhere.
std::optional<std::string> restOfLink(const fs::path& link, std::string_view path) {
  std::error_code error;
  std::string target = fs::read_symlink(link, error).string();
  const bool isThere = !error && target.starts_with(path) &&
                       (target.size() == path.size() || target[path.size()] == '/');
  return isThere ? std::optional(target.substr(path.size())) : std::nullopt;
}

std::optional<PathUser> userIn(const fs::path& process, std::string_view path) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    if (auto item = restOfLink(file->path(), path)) {
      return PathUser{.process = 0, .program = "", .item = std::move(*item), .isOpen = true};
    }
  }
  for (const char* const link : {"cwd", "root", "exe"}) {
    if (auto item = restOfLink(process / link, path)) {
      return PathUser{.process = 0, .program = "", .item = std::move(*item), .isOpen = false};
    }
  }
  return std::nullopt;
}

}  // namespace

std::vector<PathUser> usersOf(std::string_view path) {
  std::vector<PathUser> users;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    pid_t process = 0;
    const auto number = std::from_chars(name.data(), name.data() + name.size(), process);
    if (number.ec != std::errc() || *number.ptr != '\0' || process == ::getpid()) {
      continue;
    }
    if (auto user = userIn(entry->path(), path)) {
      user->process = process;
      std::ifstream file(entry->path() / "comm");
      std::getline(file, user->program);
      users.push_back(std::move(*user));
    }
  }
  std::ranges::sort(users, {}, &PathUser::process);
  return users;
}

std::string described(const std::vector<PathUser>& users) {
  constexpr std::size_t NAMED = 3;
  std::string text;
  for (std::size_t index = 0; index < std::min(users.size(), NAMED); ++index) {
    const PathUser& user = users[index];
    const std::string item = user.item.empty() ? "/" : user.item;
    text.append(index == 0 ? "" : ", ").append(user.program.empty() ? "a program" : user.program);
    text.append(" (pid ").append(std::to_string(user.process)).append(") ");
    text.append(user.isOpen ? "has " + item + " open" : "works in " + item);
  }
  if (users.size() > NAMED) {
    text.append(" and ").append(std::to_string(users.size() - NAMED)).append(" more");
  }
  return text;
}

}  // namespace ravelin::platform
