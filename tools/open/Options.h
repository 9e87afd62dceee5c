#pragma once

#include <string>
#include <variant>

#include "common/Failure.h"

namespace ravelin::open {

/// What the command line asks for.
struct Options {
  std::string path;  ///< of the shortcut
};

/// A text that was asked for instead of opening anything.
struct Information {
  std::string text;
};

/// Reads the arguments of main(), which may get another order. Once in a process.
std::variant<Options, Information, Failure> parseOptions(int count, char** arguments);

}  // namespace ravelin::open
