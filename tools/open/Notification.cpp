#include "Notification.h"

#include "platform/linux/GioTypes.h"

namespace ravelin::open {

void Notification::show(const std::string& summary, const std::string& body) {
  constexpr int PATIENCE = 5000;  // milliseconds
  constexpr gint32 AS_LONG_AS_USUAL = -1;
  const Owned<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
  if (bus == nullptr) {
    return;
  }
  const String markup(g_markup_escape_text(body.c_str(), -1));
  const Variant answer(g_dbus_connection_call_sync(
      bus.get(), "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
      "org.freedesktop.Notifications", "Notify",
      g_variant_new("(susssasa{sv}i)", "Ravelin Disk", _number, "ravelin-disk", summary.c_str(),
                    markup.get(), nullptr, nullptr, AS_LONG_AS_USUAL),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, PATIENCE, nullptr, nullptr));
  if (answer != nullptr) {
    g_variant_get(answer.get(), "(u)", &_number);
  }
}

}  // namespace ravelin::open
