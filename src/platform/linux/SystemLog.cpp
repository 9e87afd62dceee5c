#include "platform/SystemLog.h"

#include <algorithm>
#include <utility>

#include "platform/LogLine.h"
#include "platform/LogTemplate.h"
#include "platform/Visible.h"
#include "platform/linux/StandardError.h"
#include "platform/linux/SystemLogSocket.h"

namespace ravelin::platform {
namespace {

constexpr const char* SERVICE_PATH = "/dev/log";

class NativeSystemLog final : public SystemLog {
 public:
  NativeSystemLog(std::string ident, std::string_view facility, bool copyToStandardError)
      : _socket(SERVICE_PATH, ident, facility),
        _lineHead(std::move(ident) + ": "),
        _copies(copyToStandardError) {}

  std::size_t log(Level level, std::string_view messageTemplate) override {
    // One byte more than a line has room for tells that it is to be cut.
    const std::string text = cutLogLine(expandLogTemplate(messageTemplate, LOG_LINE_LIMIT + 1));
    _socket.send(level, text);
    if (!_copies) {
      return text.size();
    }
    const std::string line = cutLogLine(_lineHead + visibleLines(text), LOG_LINE_LIMIT - 1) + "\n";
    writeToStandardError(line);
    return std::max(text.size(), line.size());
  }

 private:
  SystemLogSocket _socket;
  const std::string _lineHead;
  const bool _copies;
};

}  // namespace

std::unique_ptr<SystemLog> SystemLog::open(std::string ident, std::string_view facility,
                                           bool copyToStandardError) {
  return std::make_unique<NativeSystemLog>(std::move(ident), facility, copyToStandardError);
}

}  // namespace ravelin::platform
