#include "platform/SystemLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/LogLine.h"
#include "base/LogTemplate.h"
#include "base/Visible.h"
#include "platform/linux/JournalSocket.h"
#include "platform/linux/LogFacility.h"
#include "platform/linux/StandardError.h"
#include "platform/linux/SystemLogSocket.h"

namespace ravelin::platform {
namespace {

constexpr const char* JOURNAL_PATH = "/run/systemd/journal/socket";
constexpr const char* SERVICE_PATH = "/dev/log";

/// The device and the inode of a stream of the journal's that this process's parent opened for
/// it, or nothing.
std::string journalStream() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  return stream == nullptr ? "" : stream;
}

/// The journal, or syslog's service where there is no journal. Neither of them is ever waited for.
class NativeSystemLog final : public SystemLog {
 public:
  NativeSystemLog(std::string ident, std::string_view facility, bool copyToStandardError)
      : _journal(JOURNAL_PATH, ident, logFacility(facility)),
        _socket(SERVICE_PATH, ident, logFacility(facility)),
        _lineHead(std::move(ident) + ": "),
        _copies(copyToStandardError) {}

  std::size_t log(Level level, std::string_view messageTemplate) override {
    // One byte more than a line has room for tells that it is to be cut.
    const std::string text = cutLogLine(expandLogTemplate(messageTemplate, LOG_LINE_LIMIT + 1));
    const JournalSocket::Result result = _journal.send(level, text);
    if (result == JournalSocket::Result::absent) {
      _socket.send(level, text);
    }
    if (!_copies || (result == JournalSocket::Result::taken && _standardErrorIsJournal())) {
      return text.size();
    }
    const std::string line = cutLogLine(_lineHead + visibleLines(text), LOG_LINE_LIMIT - 1) + "\n";
    writeToStandardError(line);
    return std::max(text.size(), line.size());
  }

 private:
  /// Standard error may have been replaced since this process was started.
  [[nodiscard]] bool _standardErrorIsJournal() const {
    struct stat status{};
    return !_journalStream.empty() && ::fstat(STDERR_FILENO, &status) == 0 &&
           _journalStream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  }

  JournalSocket _journal;
  SystemLogSocket _socket;
  const std::string _lineHead;
  const bool _copies;
  const std::string _journalStream = journalStream();
};

}  // namespace

std::unique_ptr<SystemLog> SystemLog::open(std::string ident, std::string_view facility,
                                           bool copyToStandardError) {
  return std::make_unique<NativeSystemLog>(std::move(ident), facility, copyToStandardError);
}

}  // namespace ravelin::platform
