#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "base/Visible.h"
#include "common/CommandLine.h"
#include "common/Failure.h"
#include "core/DirectoryFinder.h"
#include "platform/FileManager.h"
#include "platform/RunningAgents.h"
#include "platform/Service.h"
#include "platform/StandardDescriptors.h"

namespace ravelin::tidy {
namespace {

constexpr std::string_view PURPOSE =
    R"(Removes from the desktop the shortcuts that an agent has left that was killed. Other files stay,
and so does everything while an agent of this user is running, whose shortcuts they may be. The
exit status is 0 when nothing is left over, 1 when something could not be removed or looked at, 2
when the arguments are not right, and 3 when an agent is running.
)";

/// The status when an agent of this user is running.
constexpr int AGENT_RUNNING = 3;

struct Options {
  bool isDryRun = false;
  bool isForced = false;
};

platform::FileManager& files() { return platform::service<platform::FileManager>(); }

/// Why nothing may be removed now.
std::optional<Failure> obstacle() {
  const auto agents = platform::runningAgents();
  if (!agents) {
    return Failure{FAILED, "cannot tell whether an agent is running; --force removes all the same"};
  }
  if (agents->empty()) {
    return std::nullopt;
  }
  return Failure{AGENT_RUNNING, "an agent is running (process " + std::to_string(agents->front()) +
                                    "), so nothing is removed; --force removes all the same"};
}

/// Removes the shortcut. Null also where somebody else has removed it meanwhile.
std::optional<platform::FileError> remove(const std::string& name, const std::string& desktop) {
  const std::string path = desktop + "/" + name;
  const auto error = files().removeShortcutAtPath(path, desktop);
  return files().itemExistsAtPath(path, desktop) ? error : std::nullopt;
}

std::optional<Failure> tidy(const Options& options) {
  const Text desktop = DirectoryFinder::desktopDirectory();
  if (!desktop) {
    return Failure{FAILED, "this user has no desktop folder"};
  }
  // Before the look for agents: what one makes that starts later is not among them.
  const platform::ShortcutListing found = files().shortcutsBeneath(*desktop);
  if (!options.isForced) {
    if (auto failure = obstacle()) {
      return failure;
    }
  }
  std::vector<platform::ShortcutListing::Failure> failures = found.failures;
  for (const std::string& name : found.names) {
    const auto error = options.isDryRun ? std::nullopt : remove(name, *desktop);
    if (error) {
      failures.push_back({.name = name, .error = *error});
      continue;
    }
    const std::string line = options.isDryRun ? "would remove: " : "removed: ";
    if (auto failure = print(line + visible(name) + "\n")) {
      return failure;
    }
  }
  if (failures.empty()) {
    return std::nullopt;
  }
  std::string message;
  for (const auto& [name, error] : failures) {
    message.append(message.empty() ? "" : "; ").append(*desktop).append("/").append(visible(name));
    message.append(": ").append(error.localizedDescription);
  }
  return Failure{FAILED, message};
}

}  // namespace
}  // namespace ravelin::tidy

int main(int count, char** arguments) {
  using namespace ravelin;
  platform::openStandardDescriptors();
  tidy::Options options;
  CommandLine line("ravelin-disk-tidy", {"[OPTION]..."}, tidy::PURPOSE);
  line.heading("What is removed");
  line.flag("--dry-run", "only says what would be removed", options.isDryRun);
  line.flag("--force", "removes also while an agent is running, its own shortcuts too",
            options.isForced);
  return line.run(count, arguments, [&options](const std::vector<std::string>& words) {
    const auto failure = failureOfCount(words, {});
    return failure ? failure : tidy::tidy(options);
  });
}
