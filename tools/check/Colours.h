#pragma once

#include <string>
#include <string_view>

namespace ravelin::check {

enum class Colour { green, yellow, red, faint };

/// Colours parts of the output, or leaves them as they are.
class Colours {
 public:
  explicit Colours(bool on) : _on(on) {}

  /// On where standard output is a terminal that has colours and the environment variable NO_COLOR
  /// is not set, or empty.
  static Colours ofStandardOutput();

  [[nodiscard]] std::string in(Colour colour, std::string_view text) const;

 private:
  bool _on;
};

}  // namespace ravelin::check
