#include "Colours.h"

#include <unistd.h>

#include <cstdlib>

namespace ravelin::check {

namespace {

std::string_view sequenceOf(Colour colour) {
  switch (colour) {
    case Colour::green:
      return "\x1b[32m";
    case Colour::yellow:
      return "\x1b[33m";
    case Colour::red:
      return "\x1b[31m";
    case Colour::faint:
      return "\x1b[2m";
  }
  return "";
}

std::string_view environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

}  // namespace

Colours Colours::ofStandardOutput() {
  const std::string_view terminal = environment("TERM");
  return Colours(::isatty(STDOUT_FILENO) == 1 && environment("NO_COLOR").empty() &&
                 !terminal.empty() && terminal != "dumb");
}

std::string Colours::in(Colour colour, std::string_view text) const {
  return _on ? std::string(sequenceOf(colour)).append(text).append("\x1b[0m") : std::string(text);
}

}  // namespace ravelin::check
