#include "platform/scripts/ScriptRunner.h"

#include <algorithm>
#include <string>
#include <vector>

namespace ravelin::platform {

bool ScriptRunner::run(const Script& script) {
  const std::vector<std::string> values =
      std::visit([](const auto& kind) { return kind.insertedValues(); }, script);
  const bool meant = std::ranges::none_of(values, [](const std::string& value) {
    return value.find_first_of("\"\\") != std::string::npos;
  });
  return meant && _execute(script);
}

}  // namespace ravelin::platform
