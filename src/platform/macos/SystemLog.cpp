#include "platform/SystemLog.h"

#include <asl.h>

#include <memory>
#include <utility>

#include "base/LogLine.h"
#include "base/LogTemplate.h"
#include "base/ThreadSafety.h"
#include "base/Visible.h"

namespace ravelin::platform {

namespace {

struct ReleaseAsl {
  void operator()(asl_object_t object) const { asl_release(object); }
};
using AslObject = std::unique_ptr<std::remove_pointer_t<asl_object_t>, ReleaseAsl>;

static_assert(static_cast<int>(SystemLog::Level::error) == ASL_LEVEL_ERR);
static_assert(static_cast<int>(SystemLog::Level::warning) == ASL_LEVEL_WARNING);
static_assert(static_cast<int>(SystemLog::Level::info) == ASL_LEVEL_INFO);

/// One client of the Apple System Log. In the copy on standard error it puts a tab before each
/// further line of a message, but leaves control characters as they are, so that a datagram could
/// command a terminal. The copy is made of what the service gets, so both get them made visible.
class AslSystemLog final : public SystemLog {
 public:
  AslSystemLog(const std::string& ident, const std::string& facility, bool copyToStandardError)
      : _hasCopy(copyToStandardError),
        _client(
            asl_open(ident.c_str(), facility.c_str(), copyToStandardError ? ASL_OPT_STDERR : 0U)),
        _template(asl_new(ASL_TYPE_MSG)) {
    asl_set(_template.get(), ASL_KEY_SENDER, ident.c_str());
    // Without this a client sends the service nothing below the level of a notice.
    asl_set_filter(_client.get(), ASL_FILTER_MASK_UPTO(ASL_LEVEL_INFO));
  }

  std::size_t log(Level level, std::string_view messageTemplate) override {
    // One byte more than a line has room for tells that it is to be cut.
    std::string message = expandLogTemplate(messageTemplate, LOG_LINE_LIMIT + 1);
    const std::string line = cutLogLine(_hasCopy ? visibleText(message) : std::move(message));
    // One client serves one thread at a time.
    const LockGuard lock(_mutex);
    // What has been expanded is data: it must not be expanded again.
    asl_log(_client.get(), _template.get(), static_cast<int>(level), "%s", line.c_str());
    return line.size();
  }

 private:
  const bool _hasCopy;
  Mutex _mutex;  ///< held while the client is used
  AslObject _client;
  AslObject _template;
};

}  // namespace

std::unique_ptr<SystemLog> SystemLog::open(std::string ident, std::string_view facility,
                                           bool copyToStandardError) {
  return std::make_unique<AslSystemLog>(ident, std::string(facility), copyToStandardError);
}

}  // namespace ravelin::platform
