#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace ravelin::platform {

/// The system's log service, under one program's identity. A line that does not get there is lost:
/// a service that is not there or comes back later neither fails nor ends the caller. Any thread.
class SystemLog {
 public:
  /// The levels of the log service, under their numbers there.
  enum class Level { error = 3, warning = 4, info = 6 };

  /// Opens the log service for lines marked with the ident and the facility ("Daemon"); the copy on
  /// standard error is written too where it is asked for.
  static std::unique_ptr<SystemLog> open(std::string ident, std::string_view facility,
                                         bool copyToStandardError);

  virtual ~SystemLog() = default;

  /// Writes the message as a template without arguments: it is expanded (see LogTemplate) and then
  /// cut where it is too long for a line (see LogLine). To the log service it is one record, as it
  /// is; on standard error its control characters are visible and its further lines begin with a
  /// tab (see Visible). Where standard error leads to the service, there is no copy. Returns how
  /// many bytes, at most LOG_LINE_LIMIT, the line takes where it takes most.
  virtual std::size_t log(Level level, std::string_view messageTemplate) = 0;
};

}  // namespace ravelin::platform
