#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "base/ThreadSafety.h"

namespace ravelin::platform {

/// Writes what a pipe or a terminal that is standard error takes without waiting, at most PIPE_BUF
/// bytes; 0 when it takes nothing. Returns as write does. Exact as long as no other process writes
/// to the same pipe; a terminal may be waited for. The signals of a failing write are raised. Any
/// thread.
ssize_t writeToStandardErrorIfReady(std::string_view text);

/// Writes lines to the process's standard error. Never waits for a reader and never ends or stops
/// the process, whatever standard error is, as far as the system has a way to write to a pipe or a
/// terminal so: what is not taken at once is lost, and the line after one that was cut begins on a
/// line of its own. Lines of several threads do not mix. Changes neither signal dispositions nor
/// the mode of the open file, which other processes share. One for the process; any thread.
class StandardErrorWriter {
 public:
  /// Writes some of the text to standard error, a pipe or a terminal, without waiting, and returns
  /// as write does. The writer holds back the signals of a failing write.
  using PipeWrite = ssize_t (*)(std::string_view text);

  explicit StandardErrorWriter(PipeWrite writeToPipe = writeToStandardErrorIfReady)
      : _writeToPipe(writeToPipe) {}

  /// Writes one line, its line feed included.
  void write(std::string line);

 private:
  [[nodiscard]] std::size_t _writeAtOnce(std::string_view text) const;

  const PipeWrite _writeToPipe;
  Mutex _mutex;
  bool _lastWasCut GUARDED_BY(_mutex) = false;
};

}  // namespace ravelin::platform
