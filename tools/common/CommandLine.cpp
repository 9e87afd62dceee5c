#include "common/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <exception>
#include <iostream>
#include <utility>

#include "base/Visible.h"
#include "common/InQuotes.h"

namespace ravelin {

namespace {

/// The heading of the arguments that are no options, and of the options that every program has; it
/// is not printed.
constexpr const char* GENERAL = "General";

std::string nameInHelp(const CLI::Option& option) {
  const std::string value = option.get_type_name();
  return option.get_name(option.get_positional(), true).append(value.empty() ? "" : " ") + value;
}

}  // namespace

std::optional<Failure> print(const std::string& text) {
  std::cout << text << std::flush;
  return std::cout ? std::nullopt
                   : std::optional(Failure{FAILED, "cannot write to standard output"});
}

std::optional<Failure> failureOfCount(const std::vector<std::string>& arguments,
                                      const std::vector<std::string>& names) {
  if (arguments.size() < names.size()) {
    return misuse(names[arguments.size()], "missing");
  }
  if (arguments.size() > names.size()) {
    return misuse(inQuotes(arguments[names.size()]), "one argument too many");
  }
  return std::nullopt;
}

CommandLine::CommandLine(std::string name, const std::vector<std::string>& usages,
                         std::string_view purpose)
    : _name(std::move(name)), _heading(GENERAL), _parser(std::make_unique<CLI::App>("", _name)) {
  for (const std::string& usage : usages) {
    _usage.append(_usage.empty() ? "Usage: " : "       ").append(_name).append(" ");
    _usage.append(usage).append("\n");
  }
  _usage.append(purpose);
  _parser->allow_extras();
  // Before all others, so that nothing is wrong with their values yet.
  _parser->set_help_flag();
  _parser->add_flag_callback(
             "-h,--help", [] { throw CLI::CallForHelp(); }, "prints this")
      ->group(GENERAL);
  _parser->add_flag_callback(
             "--version", [] { throw CLI::CallForVersion(); }, "prints the version")
      ->group(GENERAL);
}

CommandLine::~CommandLine() = default;

void CommandLine::argument(const std::string& name, const std::string& description) {
  _parser->add_option(name, CLI::callback_t(), description)->group(GENERAL);
}

void CommandLine::heading(const std::string& text) { _heading = text; }

void CommandLine::option(const std::string& name, const std::string& value,
                         const std::string& description, const std::string& wanted, Take take) {
  _parser->add_option(name, CLI::callback_t(), description)
      ->group(_heading)
      ->type_name(value)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check([this, name, wanted, take = std::move(take)](const std::string& given) {
        if (take(given)) {
          return std::string();
        }
        _failure = unwanted(name, wanted, given);
        return _failure->message;
      });
}

void CommandLine::flag(const std::string& name, const std::string& description, bool& given) {
  _parser->add_flag_callback(name, [&given] { given = true; }, description)->group(_heading);
}

int CommandLine::run(int count, char** arguments, const Work& work) {
  try {
    return _conclude(_run(count, arguments, work));
  } catch (const std::exception& exception) {
    return _conclude(Failure{FAILED, exception.what()});
  }
}

int CommandLine::_conclude(const std::optional<Failure>& failure) const {
  if (!failure) {
    return SUCCEEDED;
  }
  tell(failure->message + (failure->status == MISUSED ? "; see --help" : ""));
  return failure->status;
}

void CommandLine::tell(std::string_view message) const {
  std::cerr << _name + ": " + visibleLine(message) + "\n";
}

std::optional<Failure> CommandLine::_run(int count, char** arguments, const Work& work) {
  auto separated = _separated(count, arguments);
  if (const auto* const failure = std::get_if<Failure>(&separated)) {
    return *failure;
  }
  auto& words = std::get<std::vector<std::string>>(separated);
  std::ranges::reverse(words);  // as the parser wants them
  try {
    _parser->parse(std::move(words));
  } catch (const CLI::CallForHelp&) {
    return print(_help());
  } catch (const CLI::CallForVersion&) {
    return print(_name + " " + RAVELIN_DISK_VERSION + "\n");
  } catch (const CLI::ValidationError&) {
    return _failure;
  }
  return work(_arguments());
}

/// The arguments, with the value of each option as an argument of its own. The parser would take
/// the argument behind "--name=" for the value, "--flag=false" for a flag that is not given, and
/// "-1" for an argument that is no option.
std::variant<std::vector<std::string>, Failure> CommandLine::_separated(int count,
                                                                        char** arguments) const {
  std::vector<std::string> words;
  for (int at = 1; at < count; ++at) {
    const std::string word = arguments[at];
    if (word == "--") {
      words.insert(words.end(), arguments + at, arguments + count);
      break;
    }
    if (!word.starts_with('-') || word == "-") {
      words.push_back(word);
      continue;
    }
    const std::size_t end = std::min(word.find('='), word.size());
    const std::string name = word.substr(0, end);
    const CLI::Option* const option = _parser->get_option_no_throw(name);
    if (option == nullptr) {
      return misuse(inQuotes(word), "no option");
    }
    const bool takesValue = option->get_items_expected_max() > 0;
    const bool hasValue = end < word.size();
    if (hasValue && !takesValue) {
      return misuse(name, "takes no value");
    }
    if (takesValue && !hasValue && at + 1 == count) {
      return misuse(name, "needs a value behind it");
    }
    words.push_back(name);
    if (takesValue) {
      words.push_back(hasValue ? word.substr(end + 1) : arguments[++at]);
    }
  }
  return words;
}

std::vector<std::string> CommandLine::_arguments() const {
  std::vector<std::string> arguments;
  for (const CLI::Option* const option : std::as_const(*_parser).get_options()) {
    if (option->get_positional()) {
      arguments.insert(arguments.end(), option->results().begin(), option->results().end());
    }
  }
  std::vector<std::string> further = _parser->remaining();
  // What ends the options is among them; one before it is an option and therefore not.
  if (const auto mark = std::ranges::find(further, "--"); mark != further.end()) {
    further.erase(mark);
  }
  arguments.insert(arguments.end(), further.begin(), further.end());
  return arguments;
}

std::string CommandLine::_help() const {
  const std::vector<const CLI::Option*> options = std::as_const(*_parser).get_options();
  std::size_t width = 0;
  for (const CLI::Option* const option : options) {
    width = std::max(width, nameInHelp(*option).size());
  }
  std::string text = _usage;
  const auto list = [&](const std::string& heading, bool positional) {
    bool first = true;
    for (const CLI::Option* const option : options) {
      if (option->get_group() != heading || option->get_positional() != positional) {
        continue;
      }
      if (first) {
        text.append("\n").append(heading == GENERAL ? "" : heading + ":\n");
      }
      first = false;
      const std::string name = nameInHelp(*option);
      text.append("  ").append(name).append(width - name.size() + 2, ' ');
      text.append(option->get_description()).append("\n");
    }
  };
  list(GENERAL, true);
  for (const std::string& heading : _parser->get_groups()) {
    if (heading != GENERAL) {
      list(heading, false);
    }
  }
  list(GENERAL, false);
  return text;
}

}  // namespace ravelin
