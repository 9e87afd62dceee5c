#include "platform/linux/LogFacility.h"

#include <strings.h>

#include <array>
#include <cstddef>

namespace ravelin::platform {
namespace {

constexpr int DAEMON_FACILITY = 3;

/// Facilities under their numbers; 12 to 15 have no name.
constexpr std::array FACILITIES = {"kern",   "user",   "mail",   "daemon", "auth",     "syslog",
                                   "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                   "",       "",       "",       "",       "local0",   "local1",
                                   "local2", "local3", "local4", "local5", "local6",   "local7"};

}  // namespace

int logFacility(std::string_view name) {
  for (std::size_t number = 0; number < FACILITIES.size(); ++number) {
    const std::string_view known = FACILITIES.at(number);
    if (!known.empty() && known.size() == name.size() &&
        ::strncasecmp(FACILITIES.at(number), name.data(), name.size()) == 0) {
      return static_cast<int>(number);
    }
  }
  return DAEMON_FACILITY;
}

}  // namespace ravelin::platform
