#include "intake/Completeness.h"

namespace ravelin {

std::optional<Lack> lackOf(const Disk& announced) {
  const Text& event = announced.eventName();
  if (event == "disk_mounted" || event == "disk_status") {
    if (!announced.uuid()) {
      return Lack::uuid;
    }
    if (!announced.macAddress()) {
      return Lack::mac;
    }
    if (!announced.ipAddress()) {
      return Lack::ip;
    }
    return announced.label() ? std::nullopt : std::optional(Lack::label);
  }
  if (event == "disk_unmounted") {
    if (!announced.macAddress()) {
      return Lack::mac;
    }
    return announced.uuid() ? std::nullopt : std::optional(Lack::uuid);
  }
  if (event == "no_disk") {
    return announced.macAddress() ? std::nullopt : std::optional(Lack::mac);
  }
  return event ? Lack::knownEvent : Lack::event;
}

}  // namespace ravelin
