#include "platform/SessionActivityWatch.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Notices.h"
#include "platform/RunLoop.h"
#include "platform/linux/NativeEvent.h"

namespace ravelin::platform {

namespace {

constexpr const char* LOGIND = "org.freedesktop.login1";
constexpr const char* MANAGER_PATH = "/org/freedesktop/login1";
constexpr const char* MANAGER = "org.freedesktop.login1.Manager";
constexpr const char* SESSION = "org.freedesktop.login1.Session";
constexpr const char* PROPERTIES = "org.freedesktop.DBus.Properties";
constexpr RunLoop::Seconds RECONNECT_INTERVAL{5.0};

struct Release {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using Bus = std::unique_ptr<sd_bus, Release>;
using Slot = std::unique_ptr<sd_bus_slot, Release>;

/// The ways in which the session of this process may be found, tried one after the other.
enum class Search { byProcess, byEnvironment, automatic, exhausted };

/// Follows the session manager's "Active" over the system bus. Every call is asynchronous.
class LoginSessionWatch final : public SessionActivityWatch {
 public:
  LoginSessionWatch(RunLoop& loop, std::function<void(SessionNotification)> notify)
      : _loop(loop), _notices(loop, std::move(notify)) {
    // Where there is no bus now there is no session to follow either.
    _connect();
  }

 private:
  bool _connect() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0) {
      return false;
    }
    _bus.reset(bus);
    const bool isConnected =
        sd_bus_attach_event(bus, nativeEventOf(_loop), NATIVE_EVENT_PRIORITY) >= 0 &&
        _match(_disconnected, "org.freedesktop.DBus.Local", "/org/freedesktop/DBus/Local",
               "org.freedesktop.DBus.Local", "Disconnected", _onDisconnected) &&
        _matchLogindComing();
    if (!isConnected) {
      _bus.reset();
      return false;
    }
    _findSession(Search::byProcess);
    return true;
  }

  bool _match(Slot& slot, const char* sender, const char* path, const char* interface,
              const char* member, sd_bus_message_handler_t handler) {
    sd_bus_slot* made = nullptr;
    const int result = sd_bus_match_signal_async(_bus.get(), &made, sender, path, interface, member,
                                                 handler, nullptr, this);
    slot.reset(made);
    return result >= 0;
  }

  bool _matchLogindComing() {
    sd_bus_slot* made = nullptr;
    const int result = sd_bus_add_match_async(
        _bus.get(), &made,
        "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
        "member='NameOwnerChanged',arg0='org.freedesktop.login1'",
        _onLogindOwnerChanged, nullptr, this);
    _ownerChanged.reset(made);
    return result >= 0;
  }

  void _findSession(Search search) {
    _search = search;
    sd_bus_slot* made = nullptr;
    int result = -1;
    if (_search == Search::byProcess) {
      result = sd_bus_call_method_async(_bus.get(), &made, LOGIND, MANAGER_PATH, MANAGER,
                                        "GetSessionByPID", _onSession, this, "u",
                                        static_cast<std::uint32_t>(::getpid()));
    } else if (_search != Search::exhausted) {
      const char* fromEnvironment = std::getenv("XDG_SESSION_ID");
      const bool isNamed = _search == Search::byEnvironment && fromEnvironment != nullptr;
      _search = isNamed ? _search : Search::automatic;
      result =
          sd_bus_call_method_async(_bus.get(), &made, LOGIND, MANAGER_PATH, MANAGER, "GetSession",
                                   _onSession, this, "s", isNamed ? fromEnvironment : "auto");
    }
    _call.reset(result >= 0 ? made : nullptr);
  }

  static int _onSession(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto& self = *static_cast<LoginSessionWatch*>(userdata);
    const char* path = nullptr;
    if (sd_bus_message_is_method_error(reply, nullptr) != 0 ||
        sd_bus_message_read(reply, "o", &path) < 0) {
      if (self._search != Search::exhausted) {
        self._findSession(static_cast<Search>(static_cast<int>(self._search) + 1));
      }
      return 0;
    }
    self._path = path;
    self._match(self._propertiesChanged, LOGIND, path, PROPERTIES, "PropertiesChanged",
                _onPropertiesChanged);
    if (std::exchange(self._mayHaveMissedChange, false)) {
      self._askActive();
    }
    return 0;
  }

  void _askActive() {
    sd_bus_slot* made = nullptr;
    const int result =
        sd_bus_call_method_async(_bus.get(), &made, LOGIND, _path.c_str(), PROPERTIES, "Get",
                                 _onActive, this, "ss", SESSION, "Active");
    _call.reset(result >= 0 ? made : nullptr);
  }

  static int _onActive(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    int active = 0;
    if (sd_bus_message_is_method_error(reply, nullptr) == 0 &&
        sd_bus_message_read(reply, "v", "b", &active) >= 0) {
      static_cast<LoginSessionWatch*>(userdata)->_tell(active != 0);
    }
    return 0;
  }

  static int _onPropertiesChanged(sd_bus_message* signal, void* userdata, sd_bus_error* /*error*/) {
    auto& self = *static_cast<LoginSessionWatch*>(userdata);
    const char* interface = nullptr;
    if (sd_bus_message_read(signal, "s", &interface) < 0 ||
        std::string_view(SESSION) != interface ||
        sd_bus_message_enter_container(signal, 'a', "{sv}") < 0) {
      return 0;
    }
    while (sd_bus_message_enter_container(signal, 'e', "sv") > 0) {
      const char* name = nullptr;
      int active = 0;
      if (sd_bus_message_read(signal, "s", &name) < 0) {
        return 0;
      }
      if (std::string_view(name) != "Active") {
        sd_bus_message_skip(signal, "v");
      } else if (sd_bus_message_read(signal, "v", "b", &active) >= 0) {
        self._tell(active != 0);
        return 0;
      } else {
        return 0;
      }
      sd_bus_message_exit_container(signal);
    }
    sd_bus_message_exit_container(signal);
    self._askIfInvalidated(signal);
    return 0;
  }

  void _askIfInvalidated(sd_bus_message* signal) {
    if (sd_bus_message_enter_container(signal, 'a', "s") < 0) {
      return;
    }
    const char* name = nullptr;
    while (sd_bus_message_read(signal, "s", &name) > 0) {
      if (std::string_view(name) == "Active") {
        _askActive();
        return;
      }
    }
  }

  static int _onLogindOwnerChanged(sd_bus_message* signal, void* userdata,
                                   sd_bus_error* /*error*/) {
    auto& self = *static_cast<LoginSessionWatch*>(userdata);
    const char* name = nullptr;
    const char* before = nullptr;
    const char* now = nullptr;
    if (sd_bus_message_read(signal, "sss", &name, &before, &now) >= 0 && *now != '\0') {
      self._mayHaveMissedChange = self._mayHaveMissedChange || !self._path.empty();
      self._findSession(Search::byProcess);
    }
    return 0;
  }

  static int _onDisconnected(sd_bus_message* /*signal*/, void* userdata, sd_bus_error* /*error*/) {
    auto& self = *static_cast<LoginSessionWatch*>(userdata);
    self._mayHaveMissedChange = true;
    self._reconnect = self._loop.scheduleTimer(RECONNECT_INTERVAL, [&self] {
      self._forgetBus();
      if (self._connect()) {
        self._reconnect.reset();
      }
    });
    return 0;
  }

  void _forgetBus() {
    for (Slot* slot : {&_disconnected, &_ownerChanged, &_propertiesChanged, &_call}) {
      slot->reset();
    }
    _bus.reset();
  }

  void _tell(bool active) {
    _notices.tell(active ? SessionNotification::didBecomeActive
                         : SessionNotification::didResignActive);
  }

  RunLoop& _loop;
  Notices<SessionNotification> _notices;
  Bus _bus;
  Slot _disconnected;
  Slot _ownerChanged;
  Slot _propertiesChanged;
  Slot _call;
  std::string _path;
  Search _search = Search::byProcess;
  bool _mayHaveMissedChange = false;
  std::unique_ptr<RunLoop::Timer> _reconnect;
};

}  // namespace

std::unique_ptr<SessionActivityWatch> SessionActivityWatch::start(
    RunLoop& loop, std::function<void(SessionNotification)> notify) {
  return std::make_unique<LoginSessionWatch>(loop, std::move(notify));
}

}  // namespace ravelin::platform
