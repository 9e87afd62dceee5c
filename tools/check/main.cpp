#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ConfigurationFile.h"
#include "Report.h"
#include "common/CommandLine.h"
#include "platform/StandardDescriptors.h"

namespace ravelin::check {
namespace {

constexpr const char* PURPOSE =
    "Finds out why there is no shortcut: what is wrong in the configuration and around it.\n";

struct Options {
  std::optional<std::string> config;
  bool json = false;
};

Report checkAll() {
  Report report;
  const auto files = ConfigurationFiles::find();
  report.add("configuration", files.findings());
  return report;
}

Report checkFile(const std::string& path) {
  Report report;
  const auto file = ConfigurationFile::at(std::filesystem::absolute(path).string());
  report.add("configuration", file.findings());
  return report;
}

std::optional<Failure> run(const Options& options) {
  const Report report = options.config ? checkFile(*options.config) : checkAll();
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

}  // namespace
}  // namespace ravelin::check

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::check;
  platform::openStandardDescriptors();
  Options options;
  CommandLine line("ravelin-disk-check", {"[options]"}, PURPOSE);
  line.heading("Options");
  line.option("--config", "FILE", "check this file alone", "the path of a file",
              [&](const std::string& value) {
                options.config = value;
                return !value.empty();
              });
  line.flag("--json", "print for programs", options.json);
  return line.run(count, arguments,
                  [&](const std::vector<std::string>& words) -> std::optional<Failure> {
                    if (auto failure = failureOfCount(words, {})) {
                      return failure;
                    }
                    return check::run(options);
                  });
}
