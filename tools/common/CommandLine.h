#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/Failure.h"

namespace CLI {
class App;
}

namespace ravelin {

/// Prints on standard output. Null unless it cannot be written.
std::optional<Failure> print(const std::string& text);

/// What the command lines of all programs for people have in common: how arguments are read, what
/// --help and --version print, how a failure is told, and the status with which the program ends.
/// One in a process, in its main thread.
///
/// Options may stand before, between and behind the other arguments. The value of an option is what
/// stands behind it or behind its "=", whatever that is, empty or with a hyphen in front. "--" ends
/// the options. Names are not shortened. Of an option that is repeated, each value is taken.
class CommandLine {
 public:
  /// Keeps a value of an option; false if it is not what is wanted.
  using Take = std::function<bool(const std::string& value)>;

  /// The work, with the arguments that are no options.
  using Work = std::function<std::optional<Failure>(const std::vector<std::string>& arguments)>;

  /// Each usage is what may stand behind the name; the purpose ends with a line feed.
  CommandLine(std::string name, const std::vector<std::string>& usages, std::string_view purpose);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// An argument that is no option, for the help.
  void argument(const std::string& name, const std::string& description);

  /// Options have this heading in the help from now on.
  void heading(const std::string& text);

  /// An option with a value. What is wanted of the value is told when it is something else.
  void option(const std::string& name, const std::string& value, const std::string& description,
              const std::string& wanted, Take take);

  /// An option without a value.
  void flag(const std::string& name, const std::string& description, bool& given);

  /// Reads the arguments of main() and does the work, unless they ask for help or the version or
  /// are not right. Returns the status of the process. No exception leaves it, the work's neither.
  [[nodiscard]] int run(int count, char** arguments, const Work& work);

  /// Says something in one line on standard error, as a failure is told. The work may go on.
  void tell(std::string_view message) const;

 private:
  /// Tells a failure in one line on standard error. Returns the status of the process.
  [[nodiscard]] int _conclude(const std::optional<Failure>& failure) const;
  [[nodiscard]] std::optional<Failure> _run(int count, char** arguments, const Work& work);
  [[nodiscard]] std::variant<std::vector<std::string>, Failure> _separated(int count,
                                                                           char** arguments) const;
  [[nodiscard]] std::vector<std::string> _arguments() const;
  [[nodiscard]] std::string _help() const;

  std::string _name;
  std::string _usage;
  std::string _heading;
  std::optional<Failure> _failure;  ///< the value that was not what is wanted
  std::unique_ptr<CLI::App> _parser;
};

/// The arguments are as many as they have names, or else why not.
[[nodiscard]] std::optional<Failure> failureOfCount(const std::vector<std::string>& arguments,
                                                    const std::vector<std::string>& names);

}  // namespace ravelin
