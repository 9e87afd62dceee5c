#pragma once

#include <string>
#include <variant>

#include "common/Failure.h"

namespace ravelin::volume {

enum class Command { mount, unmount, where, trial, alias };

/// What the command line asks for.
struct Options {
  Command command = Command::where;
  std::string server;  ///< an IPv4 address
  std::string share;
};

/// A text that was asked for instead of doing anything.
struct Information {
  std::string text;
};

/// Reads the arguments of main(), which may get another order. Once in a process.
std::variant<Options, Information, Failure> parseOptions(int count, char** arguments);

}  // namespace ravelin::volume
