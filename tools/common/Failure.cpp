#include "common/Failure.h"

#include "common/InQuotes.h"

namespace ravelin {

Failure misuse(std::string_view argument, std::string_view explanation) {
  return {MISUSED, std::string(argument).append(": ").append(explanation)};
}

Failure unwanted(std::string_view argument, std::string_view wanted, std::string_view value) {
  return misuse(argument,
                std::string("wanted ").append(wanted).append(", not ").append(inQuotes(value)));
}

}  // namespace ravelin
