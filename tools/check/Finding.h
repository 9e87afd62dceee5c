#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ravelin::check {

enum class Level {
  ok,
  note,   ///< worth knowing; nothing need be done about it
  wrong,  ///< may be why there is no shortcut
};

/// What a finding is about, by name: "key", "port", "interface" and so on.
using Details = std::map<std::string, std::string>;

/// Something that was found out.
struct Finding {
  Level level = Level::ok;
  std::string code;      ///< the same for ever, for programs: "port-out-of-range"
  std::string sentence;  ///< for people; made printable where it is printed
  Details details;
};

using Findings = std::vector<Finding>;

inline Finding ok(std::string code, std::string sentence, Details details = {}) {
  return {Level::ok, std::move(code), std::move(sentence), std::move(details)};
}

inline Finding note(std::string code, std::string sentence, Details details = {}) {
  return {Level::note, std::move(code), std::move(sentence), std::move(details)};
}

inline Finding wrong(std::string code, std::string sentence, Details details = {}) {
  return {Level::wrong, std::move(code), std::move(sentence), std::move(details)};
}

}  // namespace ravelin::check
