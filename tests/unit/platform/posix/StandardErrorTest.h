#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

#include "support/StandardErrorReplacement.h"

namespace ravelin::platform {

/// A way to write lines to standard error, under the name that its tests have.
struct NamedWriter {
  std::string name;
  void (*write)(std::string line);
};

inline void PrintTo(const NamedWriter& writer, std::ostream* out) { *out << writer.name; }

/// What every way is instantiated with, here and in the tests of a system's own ways.
class StandardErrorTest : public testing::TestWithParam<NamedWriter> {
 protected:
  static constexpr int ENOUGH_TO_FILL_ANYTHING = 20000;
  static constexpr std::size_t LONG_LENGTH = std::size_t{1024} * 1024;

  static void write(std::string line) { GetParam().write(std::move(line)); }

  static void writeUntilFull() {
    for (int line = 0; line < ENOUGH_TO_FILL_ANYTHING; ++line) {
      write("a line that fills what nobody empties\n");
    }
  }

  /// What a peer sees who reads only after everything was written: whole lines, as many as fitted,
  /// and the next one again whole.
  static void expectOnlyWholeLinesAfterFilling(const test::Channel& channel) {
    writeUntilFull();
    std::string received = channel.read();
    EXPECT_FALSE(received.empty());
    write("next\n");
    received += channel.read();
    const std::string line = "a line that fills what nobody empties\n";
    std::size_t position = 0;
    while (received.compare(position, line.size(), line) == 0) {
      position += line.size();
    }
    const std::string rest = received.substr(position);
    // At most one line was cut, and then the next began on a line of its own.
    EXPECT_EQ(rest.substr(rest.size() - std::min<std::size_t>(rest.size(), 5)), "next\n");
    const std::string torn = rest.substr(0, rest.size() - std::min<std::size_t>(rest.size(), 5));
    EXPECT_TRUE(torn.empty() || torn.back() == '\n') << torn;
    EXPECT_LE(torn.size(), line.size());
  }

  /// The exit status of a child process that does the action, or minus the signal that ended it.
  template <class Action>
  static int exitOf(const Action& action) {
    const pid_t child = ::fork();
    if (child == 0) {
      action();
      ::_exit(42);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }
};

}  // namespace ravelin::platform
