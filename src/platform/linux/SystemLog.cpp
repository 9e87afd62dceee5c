#include "platform/SystemLog.h"

#include <utility>

#include "platform/LogTemplate.h"
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

  void log(Level level, std::string_view messageTemplate) override {
    const std::string text = expandLogTemplate(messageTemplate);
    _socket.send(level, text);
    if (_copies) {
      writeToStandardError(_lineHead + text + "\n");
    }
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
