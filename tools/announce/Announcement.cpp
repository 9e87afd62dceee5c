#include "Announcement.h"

#include <algorithm>

namespace ravelin::announce {

namespace {

struct Event {
  std::string_view name;
  std::string_view sentName;
  bool needsUuid;
  bool needsShare;
};

constexpr std::array EVENTS{
    Event{"mounted", "disk_mounted", true, true}, Event{"status", "disk_status", true, true},
    Event{"unmounted", "disk_unmounted", true, false}, Event{"no-disk", "no_disk", false, false}};

}  // namespace

std::string_view nameOf(Key key) {
  constexpr std::array<std::string_view, KEYS.size()> NAMES{"event", "mac", "ip", "uuid", "label"};
  return NAMES.at(static_cast<std::size_t>(key));
}

std::optional<Announcement> Announcement::forEvent(std::string_view name) {
  const auto* const event = std::ranges::find_if(EVENTS, [&](const Event& candidate) {
    return candidate.name == name || candidate.sentName == name;
  });
  if (event == EVENTS.end()) {
    return std::nullopt;
  }
  Announcement announcement;
  announcement._pair(Key::event) = {std::string(event->sentName), true};
  announcement._pair(Key::mac) = {"02:00:00:00:00:01", true};
  announcement._pair(Key::ip) = {std::nullopt, event->needsShare};
  announcement._pair(Key::uuid) = {"1234-ABCD", event->needsUuid};
  announcement._pair(Key::label) = {"USBDISK", event->needsShare};
  return announcement;
}

void Announcement::give(Key key, const std::string& value) {
  _pair(key).value = value;
  _pair(key).needed = true;
}

void Announcement::omit(Key key) { _pair(key).omitted = true; }

bool Announcement::lacks(Key key) const {
  const Pair& pair = _pair(key);
  return pair.needed && !pair.omitted && !pair.value;
}

std::string Announcement::text(const std::string& number) const {
  std::string result;
  for (const Key key : KEYS) {
    const Pair& pair = _pair(key);
    if (pair.needed && !pair.omitted) {
      result += result.empty() ? "" : ";";
      result += nameOf(key);
      result += ':';
      result += pair.value.value_or("");
      result += key == Key::uuid || key == Key::label ? number : "";
    }
  }
  return result;
}

}  // namespace ravelin::announce
