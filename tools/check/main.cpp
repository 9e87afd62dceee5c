#include <charconv>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ConfigurationFile.h"
#include "Listener.h"
#include "Report.h"
#include "Target.h"
#include "Transcript.h"
#include "check/linux/MachineCheck.h"
#include "check/linux/PortCheck.h"
#include "common/CommandLine.h"
#include "platform/StandardDescriptors.h"

namespace ravelin::check {
namespace {

constexpr const char* PURPOSE =
    "Finds out why there is no shortcut: what is wrong in the configuration and around it, or, "
    "with\n"
    "--listen, what comes in and what the agent makes of it.\n";

struct Options {
  std::optional<std::string> config;
  bool json = false;
  bool listen = false;
  std::optional<std::chrono::seconds> time;  ///< to listen; absent: until a signal comes
};

ConfigurationFile fileAt(const std::string& path) {
  return ConfigurationFile::at(std::filesystem::absolute(path).string());
}

std::optional<Failure> check(const Options& options) {
  Report report;
  if (options.config) {
    report.add("configuration", fileAt(*options.config).findings());
  } else {
    report = checkMachine();
  }
  if (auto failure =
          print(options.json ? report.json() : report.text(Colours::ofStandardOutput()))) {
    return failure;
  }
  const std::size_t wrong = report.wrong();
  if (wrong == 0) {
    return std::nullopt;
  }
  return Failure{FAILED,
                 wrong == 1 ? "one thing is wrong" : std::to_string(wrong) + " things are wrong"};
}

/// What is listened to, by the file that is given or else the one in force.
std::variant<std::vector<Target>, Failure> targets(const Options& options) {
  const auto files = ConfigurationFiles::find();
  const auto given = options.config ? std::optional(fileAt(*options.config)) : std::nullopt;
  const ConfigurationFile* const file = given ? &*given : files.inForce;
  if (file == nullptr || !file->dictionary) {
    return Failure{FAILED,
                   given ? "no configuration in " + given->path : "no configuration is in force"};
  }
  auto found = targetsOf(Configuration::of(file->dictionary));
  if (found.empty()) {
    return Failure{FAILED, "the configuration " + file->path + " names nothing to listen to"};
  }
  return found;
}

std::optional<Failure> listen(const Options& options) {
  const auto named = targets(options);
  if (const auto* const failure = std::get_if<Failure>(&named)) {
    return *failure;
  }
  Transcript transcript(options.json, Colours::ofStandardOutput());
  Listener listener(transcript);
  const auto sockets = udpSockets();
  const Findings started =
      listener.start(std::get<std::vector<Target>>(named),
                     [&](std::uint16_t port) { return isHeldEverywhere(port, sockets); });
  if (auto failure = transcript.begin(started)) {
    return failure;
  }
  if (!listener.hears()) {
    return Failure{FAILED, "nothing can be listened to"};
  }
  if (auto failure = listener.run(options.time)) {
    return failure;
  }
  return transcript.complete() > 0
             ? std::nullopt
             : std::optional(Failure{FAILED, "no complete announcement has come"});
}

std::optional<std::chrono::seconds> secondsIn(std::string_view text) {
  constexpr long LONGEST = 1000000000;
  long seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool isRight = error == std::errc() && end == text.data() + text.size() && seconds >= 1 &&
                       seconds <= LONGEST;
  return isRight ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
}

std::optional<Failure> run(Options options, const std::vector<std::string>& words) {
  const bool hasTime = options.listen && !words.empty();
  if (auto failure = failureOfCount(
          words, hasTime ? std::vector<std::string>{"SECONDS"} : std::vector<std::string>())) {
    return failure;
  }
  if (!options.listen) {
    return check(options);
  }
  if (hasTime) {
    options.time = secondsIn(words.front());
    if (!options.time) {
      return unwanted("SECONDS", "a whole number from 1 to 1000000000", words.front());
    }
  }
  return listen(options);
}

}  // namespace
}  // namespace ravelin::check

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::check;
  platform::openStandardDescriptors();
  Options options;
  CommandLine line("ravelin-disk-check", {"[options]", "[options] --listen [SECONDS]"}, PURPOSE);
  line.argument("SECONDS", "how long to listen; until Ctrl-C where it is not given");
  line.heading("Options");
  line.option("--config", "FILE", "take this file alone for the configuration",
              "the path of a file", [&](const std::string& value) {
                options.config = value;
                return !value.empty();
              });
  line.flag("--json", "print for programs", options.json);
  line.flag("--listen", "show each announcement as it comes in", options.listen);
  return line.run(count, arguments,
                  [&](const std::vector<std::string>& words) -> std::optional<Failure> {
                    return check::run(options, words);
                  });
}
