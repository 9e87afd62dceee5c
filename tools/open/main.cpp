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
#include "common/Failure.h"
#include "platform/StandardDescriptors.h"
#include "platform/linux/GioTypes.h"

namespace ravelin::open {
namespace {

std::optional<Failure> print(const std::string& text) {
  std::cout << text << std::flush;
  return std::cout ? std::nullopt
                   : std::optional(Failure{FAILED, "cannot write to standard output"});
}

int conclude(const std::optional<Failure>& failure) {
  if (!failure) {
    return SUCCEEDED;
  }
  std::cerr << "ravelin-disk-open: " << failure->message << '\n';
  return failure->status;
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

std::optional<Failure> open(const std::string& path) {
  const auto url = urlOfShortcut(path);
  if (const auto* const failure = std::get_if<Failure>(&url)) {
    return *failure;
  }
  if (auto failure = mountShare(std::get<std::string>(url))) {
    return failure;
  }
  return showShare(std::get<std::string>(url));
}

int run(const Options& options) {
  const auto failure = open(options.path);
  if (!failure) {
    return SUCCEEDED;
  }
  const int status =
      conclude(Failure{failure->status, printable(options.path) + ": " + failure->message});
  notify("“" + nameOf(options.path) + "” cannot be opened", failure->message);
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
  if (const auto* const failure = std::get_if<Failure>(&parsed)) {
    return conclude(*failure);
  }
  return run(std::get<Options>(parsed));
}
