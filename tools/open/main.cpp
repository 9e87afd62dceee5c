#include <clocale>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Notification.h"
#include "Options.h"
#include "Printable.h"
#include "Share.h"
#include "Shortcut.h"
#include "common/GioTypes.h"
#include "common/Problem.h"
#include "platform/StandardDescriptors.h"

namespace ravelin::open {
namespace {

std::optional<Problem> print(const std::string& text) {
  std::cout << text << std::flush;
  return std::cout ? std::nullopt
                   : std::optional(Problem{FAILED, "cannot write to standard output"});
}

int conclude(const std::optional<Problem>& problem) {
  if (!problem) {
    return SUCCEEDED;
  }
  std::cerr << "ravelin-disk-open: " << problem->message << '\n';
  return problem->status;
}

/// What people call the shortcut.
std::string nameOf(const std::string& path) {
  constexpr std::string_view ENDING = ".app";
  const String base(g_path_get_basename(path.c_str()));
  std::string name = base.get();
  if (name.size() > ENDING.size() && name.ends_with(ENDING)) {
    name.resize(name.size() - ENDING.size());
  }
  return printable(name);
}

std::optional<Problem> open(const std::string& path) {
  const auto url = urlOfShortcut(path);
  if (const auto* const problem = std::get_if<Problem>(&url)) {
    return *problem;
  }
  if (auto problem = mountShare(std::get<std::string>(url))) {
    return problem;
  }
  return showShare(std::get<std::string>(url));
}

int run(const Options& options) {
  const auto problem = open(options.path);
  if (!problem) {
    return SUCCEEDED;
  }
  const int status =
      conclude(Problem{problem->status, printable(options.path) + ": " + problem->message});
  notify("“" + nameOf(options.path) + "” cannot be opened", problem->message);
  return status;
}

}  // namespace
}  // namespace ravelin::open

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::open;
  platform::openStandardDescriptors();
  std::setlocale(LC_ALL, "");
  const auto parsed = parseOptions(count, arguments);
  if (const auto* const information = std::get_if<Information>(&parsed)) {
    return conclude(print(information->text));
  }
  if (const auto* const problem = std::get_if<Problem>(&parsed)) {
    return conclude(*problem);
  }
  return run(std::get<Options>(parsed));
}
