#pragma once

#include <string>

namespace ravelin::check {

/// What an agent makes of an announcement.
struct Verdict {
  enum class Kind {
    complete,  ///< it does something
    idle,      ///< it is complete, but does nothing, or not all that its sender wants
    nothing,   ///< it is passed over as if it had not come
  };
  Kind kind = Kind::complete;
  std::string code;      ///< the same for ever, for programs: "unknown-key"
  std::string sentence;  ///< for people; made printable where it is printed
};

}  // namespace ravelin::check
