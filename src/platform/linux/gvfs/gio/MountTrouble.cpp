#include "MountTrouble.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <cstring>

namespace ravelin::gvfs {

namespace {

struct Meaning {
  int error;
  MountTrouble trouble;
};

constexpr std::array MEANINGS{
    Meaning{ENOENT, MountTrouble::noSuchShare},   Meaning{ENODEV, MountTrouble::noSuchShare},
    Meaning{EACCES, MountTrouble::notPermitted},  Meaning{EPERM, MountTrouble::notPermitted},
    Meaning{ECONNREFUSED, MountTrouble::refused}, Meaning{EHOSTUNREACH, MountTrouble::noAnswer},
    Meaning{ENETUNREACH, MountTrouble::noAnswer}, Meaning{EHOSTDOWN, MountTrouble::noAnswer},
    Meaning{ENETDOWN, MountTrouble::noAnswer},    Meaning{ETIMEDOUT, MountTrouble::noAnswer},
    Meaning{ECONNRESET, MountTrouble::noAnswer},  Meaning{ECONNABORTED, MountTrouble::noAnswer},
};

class Locale {
 public:
  explicit Locale(const char* name) : _locale(::newlocale(LC_ALL_MASK, name, nullptr)) {}
  ~Locale() {
    if (_locale != nullptr) {
      ::freelocale(_locale);
    }
  }
  Locale(const Locale&) = delete;
  Locale& operator=(const Locale&) = delete;

  [[nodiscard]] std::string_view textOf(int error) const {
    return _locale != nullptr ? ::strerror_l(error, _locale) : "";
  }

 private:
  locale_t _locale;
};

}  // namespace

MountTrouble mountTroubleBehind(std::string_view message) {
  for (const char* name : {"", "C"}) {
    const Locale locale(name);
    for (const Meaning& meaning : MEANINGS) {
      const std::string_view text = locale.textOf(meaning.error);
      if (!text.empty() && message.ends_with(text)) {
        return meaning.trouble;
      }
    }
  }
  return MountTrouble::unknown;
}

}  // namespace ravelin::gvfs
