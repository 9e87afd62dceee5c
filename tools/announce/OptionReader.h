#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Announcement.h"
#include "Options.h"
#include "common/CommandLine.h"
#include "common/Failure.h"

namespace ravelin::announce {

/// Makes Options of the command line. One in a process.
class OptionReader {
 public:
  OptionReader();

  /// The command line that reads the options and reports failures.
  [[nodiscard]] CommandLine& line() { return _line; }

  /// What the options that have been read, and these arguments, ask for.
  [[nodiscard]] std::variant<Options, Failure> options(const std::vector<std::string>& arguments);

 private:
  void _addContent();
  void _addValue(Key key, const std::string& value, const std::string& description,
                 const std::string& wanted, bool (*isWanted)(const std::string&));

  CommandLine _line;
  // All that the options say, before it is known whether it fits together.
  Options _options;
  std::vector<std::pair<Key, std::string>> _given;
  std::vector<Key> _omitted;
  std::optional<std::string> _raw;
  std::string _composing;  ///< an option that makes sense for composed texts alone
};

}  // namespace ravelin::announce
